#include "manifest/json.h"

#include <cstdlib>
#include <limits>
#include <unordered_set>
#include <utility>

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

// Tells whether an object already has a key. The objects of a manifest are small and scanned; a large one gets an
// index, so that reading takes time proportional to the text whatever it holds.
class KeyIndex {
 public:
  explicit KeyIndex(const JsonValue::Object& members)
      : members_(members), positions_(0, Hash{&members}, Equal{&members}) {}

  // Whether the last member's key occurs earlier.
  bool last_is_duplicate() {
    if (members_.size() <= largest_scanned) return last_found_by_scan();
    while (indexed_ + 1 < members_.size()) positions_.insert(indexed_++);
    return positions_.contains(members_.size() - 1);
  }

 private:
  static constexpr size_t largest_scanned = 16;

  struct Hash {
    const JsonValue::Object* members;
    size_t operator()(size_t position) const { return std::hash<std::string>()((*members)[position].key); }
  };
  struct Equal {
    const JsonValue::Object* members;
    bool operator()(size_t a, size_t b) const { return (*members)[a].key == (*members)[b].key; }
  };

  bool last_found_by_scan() const {
    for (size_t i = 0; i + 1 < members_.size(); ++i) {
      if (members_[i].key == members_.back().key) return true;
    }
    return false;
  }

  const JsonValue::Object& members_;
  size_t indexed_ = 0;
  std::unordered_set<size_t, Hash, Equal> positions_;
};

class JsonReader {
 public:
  JsonReader(std::string_view text, std::string& error) : text_(text), error_(error) {}

  bool read_document(JsonValue& out) {
    if (text_.starts_with(byte_order_mark)) position_ = byte_order_mark.size();
    if (!read_value(0, out)) return false;
    skip_space();
    if (at_end()) return true;
    error_ = "trailing data after JSON value";
    return false;
  }

 private:
  [[nodiscard]] bool at_end() const { return position_ == text_.size(); }
  [[nodiscard]] char here() const { return text_[position_]; }
  [[nodiscard]] bool here_is(char c) const { return !at_end() && here() == c; }
  [[nodiscard]] bool digit_here() const { return !at_end() && is_digit(here()); }
  [[nodiscard]] size_t remaining() const { return text_.size() - position_; }

  void skip_space() {
    while (!at_end() && is_space(here())) ++position_;
  }

  bool consume(char c) {
    if (!here_is(c)) return false;
    ++position_;
    return true;
  }

  bool consume(std::string_view word) {
    if (!text_.substr(position_).starts_with(word)) return false;
    position_ += word.size();
    return true;
  }

  // Each failure ends the whole reading, so the first is the only one.
  bool fail(const char* message) {
    error_ = std::string(message) + " at offset " + std::to_string(position_);
    return false;
  }

  bool read_value(int depth, JsonValue& out) {
    if (depth > deepest_value) return fail("nesting too deep");
    skip_space();
    if (at_end()) return fail("unexpected end");
    switch (here()) {
      case '{': return read_object(depth, out);
      case '[': return read_array(depth, out);
      case '"': return read_string_value(out);
      case 't': return read_literal("true", JsonValue(true), out);
      case 'f': return read_literal("false", JsonValue(false), out);
      case 'n': return read_literal("null", JsonValue(), out);
      default: break;
    }
    if (here() == '-' || is_digit(here())) return read_number(out);
    return fail("unexpected character");
  }

  bool read_literal(std::string_view word, JsonValue value, JsonValue& out) {
    if (!consume(word)) return fail("bad literal");
    out = std::move(value);
    return true;
  }

  bool read_object(int depth, JsonValue& out) {
    ++position_;
    skip_space();
    JsonValue::Object members;
    if (!consume('}') && !read_members(depth, members)) return false;
    members.shrink_to_fit();
    out = JsonValue(std::move(members));
    return true;
  }

  bool read_members(int depth, JsonValue::Object& members) {
    KeyIndex keys(members);
    for (;;) {
      skip_space();
      JsonMember& member = members.emplace_back();
      if (!read_string(member.key)) return false;
      if (keys.last_is_duplicate()) return fail("duplicate key");
      skip_space();
      if (!consume(':')) return fail("expected ':'");
      if (!read_value(depth + 1, member.value)) return false;
      skip_space();
      if (consume('}')) return true;
      if (!consume(',')) return fail("expected ',' or '}'");
    }
  }

  bool read_array(int depth, JsonValue& out) {
    ++position_;
    skip_space();
    JsonValue::Array elements;
    if (!consume(']') && !read_elements(depth, elements)) return false;
    elements.shrink_to_fit();
    out = JsonValue(std::move(elements));
    return true;
  }

  bool read_elements(int depth, JsonValue::Array& elements) {
    for (;;) {
      if (!read_value(depth + 1, elements.emplace_back())) return false;
      skip_space();
      if (consume(']')) return true;
      if (!consume(',')) return fail("expected ',' or ']'");
    }
  }

  bool read_string_value(JsonValue& out) {
    std::string text;
    if (!read_string(text)) return false;
    out = JsonValue(std::move(text));
    return true;
  }

  bool read_string(std::string& out) {
    if (!consume('"')) return fail("expected string");
    while (!at_end()) {
      const char c = text_[position_++];
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20) return fail("control character in string");
      if (c != '\\') {
        out += c;
      } else if (!read_escape(out)) {
        return false;
      }
    }
    return fail("unterminated string");
  }

  bool read_escape(std::string& out) {
    if (at_end()) return fail("unterminated escape");
    switch (text_[position_++]) {
      case '"': out += '"'; return true;
      case '\\': out += '\\'; return true;
      case '/': out += '/'; return true;
      case 'b': out += '\b'; return true;
      case 'f': out += '\f'; return true;
      case 'n': out += '\n'; return true;
      case 'r': out += '\r'; return true;
      case 't': out += '\t'; return true;
      case 'u': return read_unicode_escape(out);
      default: return fail("bad escape");
    }
  }

  bool read_unicode_escape(std::string& out) {
    uint32_t code_point = 0;
    if (!read_code_unit(code_point)) return false;
    if (is_low_surrogate(code_point)) return fail("lone surrogate");
    if (is_high_surrogate(code_point) && !read_second_of_pair(code_point)) return false;
    if (code_point == 0) return fail("NUL in string");
    append_utf8(code_point, out);
    return true;
  }

  bool read_code_unit(uint32_t& unit) {
    constexpr size_t digits = 4;
    if (remaining() < digits) return fail("truncated \\u escape");
    unit = 0;
    for (size_t i = 0; i < digits; ++i) {
      const int value = hex_digit_value(text_[position_++]);
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

  bool read_number(JsonValue& out) {
    const size_t start = position_;
    const bool negative = consume('-');
    const size_t first_digit = position_;
    if (!consume('0') && !skip_digits()) return fail("bad number");
    const std::string_view digits = text_.substr(first_digit, position_ - first_digit);

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
    if (is_integer) return convert_integer(digits, negative, out);
    const std::string token(text_.substr(start, position_ - start));
    out = JsonValue(std::strtod(token.c_str(), nullptr));
    return true;
  }

  // False when there is not one.
  bool skip_digits() {
    if (!digit_here()) return false;
    while (digit_here()) ++position_;
    return true;
  }

  bool convert_integer(std::string_view digits, bool negative, JsonValue& out) {
    constexpr uint64_t largest = std::numeric_limits<uint64_t>::max();
    uint64_t magnitude = 0;
    for (const char c : digits) {
      const auto digit = static_cast<uint64_t>(c - '0');
      if (magnitude > (largest - digit) / 10) return fail("integer overflow");
      magnitude = magnitude * 10 + digit;
    }
    constexpr auto largest_positive = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (magnitude > largest_positive + (negative ? 1 : 0)) return fail("integer overflow");
    out = JsonValue(static_cast<int64_t>(negative ? 0 - magnitude : magnitude));
    return true;
  }

  std::string_view text_;
  std::string& error_;
  size_t position_ = 0;
};

}  // namespace

const JsonValue* JsonValue::find_member(std::string_view key) const {
  const Object* members = object();
  if (members == nullptr) return nullptr;
  for (const JsonMember& member : *members) {
    if (member.key == key) return &member.value;
  }
  return nullptr;
}

bool parse_json(std::string_view text, JsonValue& out, std::string& error) {
  out = JsonValue();
  return JsonReader(text, error).read_document(out);
}

}  // namespace kvx
