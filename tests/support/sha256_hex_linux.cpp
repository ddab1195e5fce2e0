#include <openssl/sha.h>

#include "foundations/text.h"
#include "tests/support/sha256_hex.h"

namespace kvx::test {

Sha256Bytes sha256_bytes(std::string_view bytes) {
  Sha256Bytes digest{};
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
  return digest;
}

std::string sha256_hex(std::string_view bytes) {
  const Sha256Bytes digest = sha256_bytes(bytes);
  return to_hex(digest.data(), digest.size());
}

}  // namespace kvx::test
