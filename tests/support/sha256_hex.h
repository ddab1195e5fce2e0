// SHA-256 of bytes in memory, made without the program's own code.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace kvx::test {

using Sha256Bytes = std::array<uint8_t, 32>;

[[nodiscard]] Sha256Bytes sha256_bytes(std::string_view bytes);
// 64 lower-case hexadecimal characters.
[[nodiscard]] std::string sha256_hex(std::string_view bytes);

}  // namespace kvx::test
