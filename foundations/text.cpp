#include "foundations/text.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "foundations/unicode.h"

namespace kvx {
namespace {

// What a system does to ASCII is the same on every computer and is done here, many times as fast.
bool is_ascii(std::wstring_view text) {
  uint32_t bits = 0;
  for (const wchar_t c : text) bits |= static_cast<uint32_t>(c);
  return bits < 0x80;
}

// By byte value; lower case alone.
constexpr std::array<bool, 256> is_hex_digit = [] {
  std::array<bool, 256> table{};
  for (const char c : std::string_view("0123456789abcdef")) table[static_cast<unsigned char>(c)] = true;
  return table;
}();

wchar_t upper_ascii(wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; }

}  // namespace

std::string to_utf8(std::wstring_view text) {
  if (is_ascii(text)) {
    std::string result(text.size(), '\0');
    std::transform(text.begin(), text.end(), result.begin(), [](wchar_t c) { return static_cast<char>(c); });
    return result;
  }
  return unicode::to_utf8(text);
}

std::wstring to_wide(std::string_view text) {
  if (is_ascii(text)) return {text.begin(), text.end()};
  return unicode::to_wide(text);
}

bool is_ascii(std::string_view text) {
  uint64_t bits = 0;
  for (; text.size() >= sizeof(bits); text.remove_prefix(sizeof(bits))) {
    uint64_t eight = 0;
    std::memcpy(&eight, text.data(), sizeof(eight));
    bits |= eight;
  }
  for (const char c : text) bits |= static_cast<unsigned char>(c);
  return (bits & 0x8080808080808080U) == 0;
}

std::string to_hex(const uint8_t* bytes, size_t count) {
  constexpr char digits[] = "0123456789abcdef";
  std::string result;
  result.reserve(count * 2);
  for (size_t i = 0; i < count; ++i) {
    result += digits[bytes[i] >> 4];
    result += digits[bytes[i] & 0x0F];
  }
  return result;
}

bool is_sha256_hex(std::string_view text) {
  constexpr size_t digest_digits = 64;
  if (text.size() != digest_digits) return false;
  // No branch for each character: digits and letters follow each other at random.
  bool all = true;
  for (const char c : text) all &= is_hex_digit[static_cast<unsigned char>(c)];
  return all;
}

std::wstring to_upper(std::wstring_view text) {
  std::wstring result(text);
  if (is_ascii(text)) {
    std::transform(result.begin(), result.end(), result.begin(), upper_ascii);
    return result;
  }
  unicode::make_upper(result);
  return result;
}

std::string to_lower_ascii(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

bool equals_ignore_case(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  if (is_ascii(a) && is_ascii(b)) {
    return std::equal(a.begin(), a.end(), b.begin(),
                      [](wchar_t x, wchar_t y) { return upper_ascii(x) == upper_ascii(y); });
  }
  return unicode::equal_ignoring_case(a, b);
}

bool starts_with_ignore_case(std::wstring_view text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && equals_ignore_case(text.substr(0, prefix.size()), prefix);
}

std::wstring quote_argument(std::wstring_view argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring_view::npos) {
    return std::wstring(argument);
  }
  std::wstring result = L"\"";
  size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    result.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
    backslashes = 0;
    result += c;
  }
  result.append(backslashes * 2, L'\\');
  result += L'"';
  return result;
}

}  // namespace kvx
