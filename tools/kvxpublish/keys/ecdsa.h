// The system's own cryptography for keys on NIST P-256: CNG, elsewhere libcrypto. Any thread.
#pragma once

#include <array>
#include <cstdint>

#include "manifest/sha256.h"
#include "tools/kvxpublish/keys/pem_key.h"

namespace kvx::publish {

// A new key pair. False when the system refuses.
[[nodiscard]] bool generate_key(PrivateKey& key);

// r then s, 32 bytes each, big-endian. False when the system does not take the key.
[[nodiscard]] bool sign_digest(Sha256Digest digest, const PrivateKey& key, std::array<uint8_t, 64>& r_and_s);

}  // namespace kvx::publish
