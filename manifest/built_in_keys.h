// The publisher's public keys that this program was built with. Constant data; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace kvx {

struct PublicKey {
  const char* name;                      // "primary" or "backup"
  std::array<uint8_t, 8> identifier;     // opaque, as signature files name the key
  std::array<uint8_t, 64> public_point;  // X then Y on NIST P-256, each 32 bytes big-endian
};

// "primary", then "backup".
[[nodiscard]] std::span<const PublicKey> built_in_keys();

}  // namespace kvx
