// Typed reading of a JSON object's members. A member that is null counts as absent; an absent one leaves `out` as it
// is. A string_view refers to what the object's document does.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "manifest/json_value.h"

namespace kvx {

enum class Presence : bool { optional, required };

// The member's value, null when it is absent or null.
[[nodiscard]] const JsonValue* find_present(const JsonValue& object, const char* key);

// On failure return false and `error` names the key: missing "KEY", "KEY" must be a string, "KEY" must be a
// non-negative integer.
[[nodiscard]] bool read_string_field(const JsonValue& object, const char* key, Presence presence, std::string& out,
                                     std::string& error);
[[nodiscard]] bool read_string_field(const JsonValue& object, const char* key, Presence presence, std::string_view& out,
                                     std::string& error);
[[nodiscard]] bool read_unsigned_field(const JsonValue& object, const char* key, Presence presence, uint64_t& out,
                                       std::string& error);

}  // namespace kvx
