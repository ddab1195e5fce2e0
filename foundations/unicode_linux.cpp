#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "foundations/unicode.h"
#include "foundations/upper_case.h"

namespace kvx {
namespace {

constexpr wchar_t replacement = 0xFFFD;
constexpr uint32_t last_code_point = 0x10FFFF;

uint32_t code_point_of(wchar_t character) { return static_cast<std::make_unsigned_t<wchar_t>>(character); }

bool is_surrogate(uint32_t code_point) { return code_point >= 0xD800 && code_point <= 0xDFFF; }

// What the first byte of a sequence says about the others (RFC 3629).
struct Sequence {
  size_t more_bytes = 0;  // 0: not the first byte of a sequence of several
  uint32_t first_bits = 0;
  uint8_t least_second = 0x80;  // which excludes longer forms than needed, surrogates, and what is beyond the last
  uint8_t largest_second = 0xBF;
};

Sequence sequence_of(uint8_t first) {
  if (first >= 0xC2 && first <= 0xDF) return {1, first & 0x1FU};
  if (first == 0xE0) return {2, 0, 0xA0, 0xBF};
  if (first == 0xED) return {2, 0xD, 0x80, 0x9F};
  if (first >= 0xE1 && first <= 0xEF) return {2, first & 0x0FU};
  if (first == 0xF0) return {3, 0, 0x90, 0xBF};
  if (first >= 0xF1 && first <= 0xF3) return {3, first & 0x07U};
  if (first == 0xF4) return {3, 4, 0x80, 0x8F};
  return {};
}

// The code point that `text` begins with; removes its bytes, or those of the sequence that breaks off.
wchar_t take_code_point(std::string_view& text) {
  const auto first = static_cast<uint8_t>(text.front());
  text.remove_prefix(1);
  if (first < 0x80) return static_cast<wchar_t>(first);
  Sequence sequence = sequence_of(first);
  if (sequence.more_bytes == 0) return replacement;
  uint32_t code_point = sequence.first_bits;
  for (; sequence.more_bytes > 0; --sequence.more_bytes) {
    if (text.empty()) return replacement;
    const auto next = static_cast<uint8_t>(text.front());
    if (next < sequence.least_second || next > sequence.largest_second) return replacement;
    sequence.least_second = 0x80;
    sequence.largest_second = 0xBF;
    code_point = code_point << 6 | (next & 0x3FU);
    text.remove_prefix(1);
  }
  return static_cast<wchar_t>(code_point);
}

void append_code_point(uint32_t code_point, std::string& text) {
  const auto append = [&text](uint32_t byte) { text += static_cast<char>(static_cast<uint8_t>(byte)); };
  if (code_point < 0x80) {
    append(code_point);
  } else if (code_point < 0x800) {
    append(0xC0 | code_point >> 6);
    append(0x80 | (code_point & 0x3F));
  } else if (code_point < 0x10000) {
    append(0xE0 | code_point >> 12);
    append(0x80 | (code_point >> 6 & 0x3F));
    append(0x80 | (code_point & 0x3F));
  } else {
    append(0xF0 | code_point >> 18);
    append(0x80 | (code_point >> 12 & 0x3F));
    append(0x80 | (code_point >> 6 & 0x3F));
    append(0x80 | (code_point & 0x3F));
  }
}

// A code point of two units of UTF-16 has no upper case there.
wchar_t upper(wchar_t character) {
  const auto code_point = code_point_of(character);
  return code_point > 0xFFFF ? character : static_cast<wchar_t>(upper_case(static_cast<uint16_t>(code_point)));
}

}  // namespace

std::string unicode::to_utf8(std::wstring_view text) {
  std::string result;
  for (const wchar_t character : text) {
    const auto code_point = code_point_of(character);
    const bool valid = code_point <= last_code_point && !is_surrogate(code_point);
    append_code_point(valid ? code_point : code_point_of(replacement), result);
  }
  return result;
}

std::wstring unicode::to_wide(std::string_view text) {
  std::wstring result;
  while (!text.empty()) result += take_code_point(text);
  return result;
}

void unicode::make_upper(std::wstring& text) { std::transform(text.begin(), text.end(), text.begin(), upper); }

bool unicode::equal_ignoring_case(std::wstring_view a, std::wstring_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](wchar_t x, wchar_t y) { return upper(x) == upper(y); });
}

}  // namespace kvx
