#include "manifest/manifest_fields.h"

namespace kvx {
namespace {

std::string quoted(const char* key) { return std::string("\"") + key + "\""; }

// What an absent member means.
bool absent(const char* key, Presence presence, std::string& error) {
  if (presence == Presence::optional) return true;
  error = "missing " + quoted(key);
  return false;
}

}  // namespace

const JsonValue* find_present(const JsonValue& object, const char* key) {
  const JsonValue* value = object.find_member(key);
  return value == nullptr || value->kind() == JsonValue::Kind::null ? nullptr : value;
}

bool read_string_field(const JsonValue& object, const char* key, Presence presence, std::string_view& out,
                       std::string& error) {
  const JsonValue* value = find_present(object, key);
  if (value == nullptr) return absent(key, presence, error);
  const std::optional<std::string_view> text = value->string();
  if (!text) {
    error = quoted(key) + " must be a string";
    return false;
  }
  out = *text;
  return true;
}

bool read_string_field(const JsonValue& object, const char* key, Presence presence, std::string& out,
                       std::string& error) {
  std::string_view text = out;
  if (!read_string_field(object, key, presence, text, error)) return false;
  out = std::string(text);
  return true;
}

bool read_unsigned_field(const JsonValue& object, const char* key, Presence presence, uint64_t& out,
                         std::string& error) {
  const JsonValue* value = find_present(object, key);
  if (value == nullptr) return absent(key, presence, error);
  const std::optional<int64_t> number = value->integer();
  if (!number || *number < 0) {
    error = quoted(key) + " must be a non-negative integer";
    return false;
  }
  out = static_cast<uint64_t>(*number);
  return true;
}

}  // namespace kvx
