#include <windows.h>
#include <wincrypt.h>

#include <gtest/gtest.h>

#include "foundations/text.h"
#include "tests/support/sha256_hex.h"

namespace kvx::test {

Sha256Bytes sha256_bytes(std::string_view bytes) {
  Sha256Bytes digest{};
  HCRYPTPROV provider = 0;
  HCRYPTHASH hash = 0;
  auto size = static_cast<DWORD>(digest.size());
  EXPECT_TRUE(CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
  EXPECT_TRUE(CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash));
  EXPECT_TRUE(CryptHashData(hash, reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size()), 0));
  EXPECT_TRUE(CryptGetHashParam(hash, HP_HASHVAL, digest.data(), &size, 0));
  CryptDestroyHash(hash);
  CryptReleaseContext(provider, 0);
  return digest;
}

std::string sha256_hex(std::string_view bytes) {
  const Sha256Bytes digest = sha256_bytes(bytes);
  return to_hex(digest.data(), digest.size());
}

}  // namespace kvx::test
