// A strict reader of JSON (RFC 8259) for UTF-8 text. It is stricter than the RFC in three points: object keys are
// unique, strings hold no NUL, and at most 33 containers nest. Integers that fit 64 bits signed stay exact and are
// never turned into doubles; larger ones are refused. There is no writer.
//
// The reader is a pure function and may be called from any thread. It throws for exhausted memory only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kvx {

struct JsonMember;

// One value with everything below it. A new value is null.
class JsonValue {
 public:
  enum class Kind : uint8_t { null, boolean, integer, number, string, array, object };
  using Array = std::vector<JsonValue>;
  using Object = std::vector<JsonMember>;  // in document order, keys unique

  JsonValue() = default;
  template <typename Alternative>
  explicit JsonValue(Alternative value) : value_(std::move(value)) {}

  [[nodiscard]] Kind kind() const { return static_cast<Kind>(value_.index()); }

  // Each is null when the value is of another kind.
  [[nodiscard]] const bool* boolean() const { return std::get_if<bool>(&value_); }
  [[nodiscard]] const int64_t* integer() const { return std::get_if<int64_t>(&value_); }
  [[nodiscard]] const double* number() const { return std::get_if<double>(&value_); }
  [[nodiscard]] const std::string* string() const { return std::get_if<std::string>(&value_); }
  [[nodiscard]] const Array* array() const { return std::get_if<Array>(&value_); }
  [[nodiscard]] const Object* object() const { return std::get_if<Object>(&value_); }

  // The member of that name, compared byte for byte; null when there is none or this is no object.
  [[nodiscard]] const JsonValue* find_member(std::string_view key) const;

 private:
  std::variant<std::monostate, bool, int64_t, double, std::string, Array, Object> value_;
};

// A manifest of half a million files holds millions of these.
static_assert(sizeof(JsonValue) <= 40);

struct JsonMember {
  std::string key;
  JsonValue value;
};

// On success `out` is the document. On failure returns false, `error` says what is wrong and at which byte (counted
// from 0, a byte-order mark included), and `out` must not be used.
[[nodiscard]] bool parse_json(std::string_view text, JsonValue& out, std::string& error);

}  // namespace kvx
