// Base64 (RFC 4648) as PEM files have it. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::publish {

// In one line.
[[nodiscard]] std::string to_base64(std::span<const uint8_t> bytes);

// Blanks and line ends count nowhere. Nothing when there is any other character, or the padding is wrong.
[[nodiscard]] std::optional<std::vector<uint8_t>> from_base64(std::string_view text);

}  // namespace kvx::publish
