// SHA-256 (FIPS 180-4) as a stream, computed by the system: Windows CNG, elsewhere libcrypto. CNG's algorithm provider
// is opened on first use and stays open until the process ends; when that fails, every hasher is empty and every
// operation on it fails.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "foundations/unique_handle.h"

namespace kvx {

using Sha256Digest = std::array<uint8_t, 32>;

struct Sha256HandleTraits {
  using value_type = void*;  // BCRYPT_HASH_HANDLE or EVP_MD_CTX*
  static value_type none() { return nullptr; }
  static void close(value_type value);
};

// Any thread may make and use its own hasher; one hasher is used by one thread at a time. After finish, and after a
// failure, it is empty until reset.
class Sha256Hasher {
 public:
  Sha256Hasher() { static_cast<void>(reset()); }

  // Starts a new digest, dropping what was fed so far.
  [[nodiscard]] bool reset();

  [[nodiscard]] bool update(const void* bytes, size_t length);

  [[nodiscard]] bool finish(Sha256Digest& digest);

  // The digest as 64 lower-case hexadecimal characters, empty on failure.
  [[nodiscard]] std::string finish_text();

 private:
  UniqueHandle<Sha256HandleTraits> handle_;
};

}  // namespace kvx
