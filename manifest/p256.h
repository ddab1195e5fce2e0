// Verifying ECDSA signatures on NIST P-256 (FIPS 186-4). One implementation for each system; any thread.
#pragma once

#include <array>
#include <cstdint>

#include "manifest/sha256.h"

namespace kvx {

using P256Point = std::array<uint8_t, 64>;      // X then Y, each 32 bytes big-endian
using P256Signature = std::array<uint8_t, 64>;  // r then s, each 32 bytes big-endian

// False as well when the point is not on the curve, and when the system refuses.
[[nodiscard]] bool verify_p256(const P256Point& public_point, const Sha256Digest& digest,
                               const P256Signature& signature);

}  // namespace kvx
