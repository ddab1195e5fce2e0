#include "manifest/json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "manifest/json_keys.h"

namespace kvx {
namespace {

constexpr int deepest_value = 32;
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

int hex_digit_value(char c) {
  if (is_digit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool is_high_surrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }

bool is_low_surrogate(uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void append_utf8(uint32_t code_point, std::string& out) {
  const auto append = [&out](uint32_t byte) { out += static_cast<char>(byte); };
  if (code_point < 0x80) {
    append(code_point);
  } else if (code_point < 0x800) {
    append(0xC0 | (code_point >> 6));
    append(0x80 | (code_point & 0x3F));
  } else if (code_point < 0x10000) {
    append(0xE0 | (code_point >> 12));
    append(0x80 | ((code_point >> 6) & 0x3F));
    append(0x80 | (code_point & 0x3F));
  } else {
    append(0xF0 | (code_point >> 18));
    append(0x80 | ((code_point >> 12) & 0x3F));
    append(0x80 | ((code_point >> 6) & 0x3F));
    append(0x80 | (code_point & 0x3F));
  }
}

// Whether a string takes the byte as it is; by byte value.
constexpr std::array<bool, 256> is_plain = [] {
  std::array<bool, 256> table{};
  std::fill(table.begin() + 0x20, table.end(), true);
  table['"'] = table['\\'] = false;
  return table;
}();

// The same for eight bytes at once. Each test leaves the highest bit of a byte set where the byte is looked for; a byte
// that follows one may be marked wrongly, but none is overlooked.
bool are_plain(uint64_t bytes) {
  constexpr uint64_t ones = 0x0101010101010101U;
  const auto has_zero = [](uint64_t value) { return (value - ones) & ~value; };
  const uint64_t controls = (bytes - ones * 0x20) & ~bytes;
  return ((has_zero(bytes ^ (ones * '"')) | has_zero(bytes ^ (ones * '\\')) | controls) & (ones * 0x80)) == 0;
}

const char* end_of_plain_bytes(const char* from, const char* end) {
  uint64_t eight = 0;
  for (; static_cast<size_t>(end - from) >= sizeof(eight); from += sizeof(eight)) {
    std::memcpy(&eight, from, sizeof(eight));
    if (!are_plain(eight)) break;
  }
  while (from != end && is_plain[static_cast<unsigned char>(*from)]) ++from;
  return from;
}

class JsonReader {
 public:
  JsonReader(std::string_view text, JsonStore& store, std::string& error)
      : begin_(text.data()), end_(begin_ + text.size()), store_(store), error_(error) {}

  bool read_document() {
    static_cast<void>(consume(byte_order_mark));
    if (!read_value(0)) return false;
    skip_space();
    if (at_end()) return true;
    error_ = "trailing data after JSON value";
    return false;
  }

 private:
  [[nodiscard]] bool at_end() const { return here_ == end_; }
  [[nodiscard]] bool here_is(char c) const { return !at_end() && *here_ == c; }
  [[nodiscard]] bool digit_here() const { return !at_end() && is_digit(*here_); }
  [[nodiscard]] size_t remaining() const { return static_cast<size_t>(end_ - here_); }

  void skip_space() {
    while (!at_end() && is_space(*here_)) ++here_;
  }

  bool consume(char c) {
    if (!here_is(c)) return false;
    ++here_;
    return true;
  }

  bool consume(std::string_view word) {
    if (!std::string_view(here_, remaining()).starts_with(word)) return false;
    here_ += word.size();
    return true;
  }

  // Each failure ends the whole reading, so the first is the only one.
  [[gnu::cold]] bool fail(const char* message) {
    error_ = std::string(message) + " at offset " + std::to_string(here_ - begin_);
    return false;
  }

  bool read_value(int depth) {
    if (depth > deepest_value) return fail("nesting too deep");
    skip_space();
    if (at_end()) return fail("unexpected end");
    switch (*here_) {
      case '{': return read_object(depth);
      case '[': return read_array(depth);
      case '"': return read_string_value();
      case 't': return read_boolean("true", true);
      case 'f': return read_boolean("false", false);
      case 'n': return read_null();
      default: break;
    }
    if (*here_ == '-' || is_digit(*here_)) return read_number();
    return fail("unexpected character");
  }

  bool read_boolean(std::string_view word, bool value) {
    if (!consume(word)) return fail("bad literal");
    store_.add_boolean(value);
    return true;
  }

  bool read_null() {
    if (!consume("null")) return fail("bad literal");
    store_.add_null();
    return true;
  }

  bool read_object(int depth) {
    ++here_;
    skip_space();
    JsonValue& object = store_.begin_container();
    JsonKeys keys;
    if (!consume('}') && !read_members(depth, keys)) return false;
    store_.end_container(object, JsonValue::Kind::object, keys.count());
    return true;
  }

  bool read_members(int depth, JsonKeys& keys) {
    for (;;) {
      skip_space();
      std::string_view key;
      if (!read_string(key)) return false;
      if (!keys.add(store_.add_string(key))) return fail("duplicate key");
      skip_space();
      if (!consume(':')) return fail("expected ':'");
      if (!read_value(depth + 1)) return false;
      skip_space();
      if (consume('}')) return true;
      if (!consume(',')) return fail("expected ',' or '}'");
    }
  }

  bool read_array(int depth) {
    ++here_;
    skip_space();
    JsonValue& array = store_.begin_container();
    size_t elements = 0;
    if (!consume(']') && !read_elements(depth, elements)) return false;
    store_.end_container(array, JsonValue::Kind::array, elements);
    return true;
  }

  bool read_elements(int depth, size_t& count) {
    for (;;) {
      if (!read_value(depth + 1)) return false;
      ++count;
      skip_space();
      if (consume(']')) return true;
      if (!consume(',')) return fail("expected ',' or ']'");
    }
  }

  bool read_string_value() {
    std::string_view text;
    if (!read_string(text)) return false;
    store_.add_string(text);
    return true;
  }

  // `out` refers to the text where that can be taken as it is, otherwise to the decoded bytes in the store.
  bool read_string(std::string_view& out) {
    if (!consume('"')) return fail("expected string");
    out = take_plain_bytes();
    if (consume('"')) return true;
    decoded_ = out;
    if (!read_rest_of_string()) return false;
    out = store_.keep(decoded_);
    return true;
  }

  [[gnu::cold]] bool read_rest_of_string() {
    for (;;) {
      if (at_end()) return fail("unterminated string");
      const char c = *here_++;
      if (c == '"') return true;
      if (c != '\\') return fail("control character in string");
      if (!read_escape()) return false;
      decoded_ += take_plain_bytes();
    }
  }

  // The bytes before the next quote, backslash, control character or the end.
  std::string_view take_plain_bytes() {
    const char* const start = here_;
    here_ = end_of_plain_bytes(here_, end_);
    return {start, static_cast<size_t>(here_ - start)};
  }

  bool read_escape() {
    if (at_end()) return fail("unterminated escape");
    switch (*here_++) {
      case '"': decoded_ += '"'; return true;
      case '\\': decoded_ += '\\'; return true;
      case '/': decoded_ += '/'; return true;
      case 'b': decoded_ += '\b'; return true;
      case 'f': decoded_ += '\f'; return true;
      case 'n': decoded_ += '\n'; return true;
      case 'r': decoded_ += '\r'; return true;
      case 't': decoded_ += '\t'; return true;
      case 'u': return read_unicode_escape();
      default: return fail("bad escape");
    }
  }

  bool read_unicode_escape() {
    uint32_t code_point = 0;
    if (!read_code_unit(code_point)) return false;
    if (is_low_surrogate(code_point)) return fail("lone surrogate");
    if (is_high_surrogate(code_point) && !read_second_of_pair(code_point)) return false;
    if (code_point == 0) return fail("NUL in string");
    append_utf8(code_point, decoded_);
    return true;
  }

  bool read_code_unit(uint32_t& unit) {
    constexpr size_t digits = 4;
    if (remaining() < digits) return fail("truncated \\u escape");
    unit = 0;
    for (size_t i = 0; i < digits; ++i) {
      const int value = hex_digit_value(*here_++);
      if (value < 0) return fail("bad \\u escape");
      unit = unit * 16 + static_cast<uint32_t>(value);
    }
    return true;
  }

  // Turns a high surrogate into the code point of the pair that it begins.
  bool read_second_of_pair(uint32_t& code_point) {
    constexpr size_t escape_bytes = 6;
    if (remaining() < escape_bytes || !consume("\\u")) return fail("lone surrogate");
    uint32_t second = 0;
    if (!read_code_unit(second)) return false;
    if (!is_low_surrogate(second)) return fail("bad surrogate pair");
    code_point = 0x10000 + ((code_point - 0xD800) << 10) + (second - 0xDC00);
    return true;
  }

  bool read_number() {
    const char* const start = here_;
    const bool negative = consume('-');
    const char* const first_digit = here_;
    if (!consume('0') && !skip_digits()) return fail("bad number");
    const char* const end_of_digits = here_;

    bool is_integer = true;
    if (consume('.')) {
      is_integer = false;
      if (!skip_digits()) return fail("bad number");
    }
    if (consume('e') || consume('E')) {
      is_integer = false;
      if (!consume('+')) consume('-');
      if (!skip_digits()) return fail("bad number");
    }
    if (is_integer) return add_integer(first_digit, end_of_digits, negative);
    store_.add_number(std::strtod(std::string(start, here_).c_str(), nullptr));
    return true;
  }

  // False when there is not one.
  bool skip_digits() {
    if (!digit_here()) return false;
    while (digit_here()) ++here_;
    return true;
  }

  bool add_integer(const char* digits, const char* end_of_digits, bool negative) {
    constexpr auto largest_positive = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    uint64_t magnitude = 0;
    if (std::from_chars(digits, end_of_digits, magnitude).ec != std::errc() ||
        magnitude > largest_positive + (negative ? 1 : 0)) {
      return fail("integer overflow");
    }
    store_.add_integer(static_cast<int64_t>(negative ? 0 - magnitude : magnitude));
    return true;
  }

  const char* const begin_;
  const char* const end_;
  const char* here_ = begin_;
  JsonStore& store_;
  std::string& error_;
  std::string decoded_;  // the string that is being decoded
};

}  // namespace

bool parse_json(std::string_view text, JsonDocument& out, std::string& error) {
  out = JsonDocument();
  if (JsonReader(text, out.store_, error).read_document()) return true;
  out = JsonDocument();
  return false;
}

}  // namespace kvx
