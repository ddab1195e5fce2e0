#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include "manifest/built_in_keys.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Key read_private_key(SigningKey key) {
  const std::string name = key == SigningKey::primary ? "primary" : "backup";
  const std::unique_ptr<FILE, decltype(&std::fclose)> file(
      std::fopen(source_path("keys/development/" + name + ".pem").c_str(), "rb"), &std::fclose);
  EXPECT_TRUE(file) << name;
  return {file ? PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr) : nullptr, &EVP_PKEY_free};
}

std::string sign_digest(const Key& key, const Sha256Bytes& digest) {
  const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(EVP_PKEY_CTX_new(key.get(), nullptr),
                                                                            &EVP_PKEY_CTX_free);
  unsigned char der[80];
  size_t length = sizeof(der);
  EXPECT_EQ(EVP_PKEY_sign_init(context.get()), 1);
  EXPECT_EQ(EVP_PKEY_sign(context.get(), der, &length, digest.data(), digest.size()), 1);
  const unsigned char* next = der;
  const std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)> parts(
      d2i_ECDSA_SIG(nullptr, &next, static_cast<long>(length)), &ECDSA_SIG_free);
  constexpr int number_bytes = 32;
  std::string r_and_s(2 * number_bytes, '\0');
  auto* bytes = reinterpret_cast<unsigned char*>(r_and_s.data());
  EXPECT_EQ(BN_bn2binpad(ECDSA_SIG_get0_r(parts.get()), bytes, number_bytes), number_bytes);
  EXPECT_EQ(BN_bn2binpad(ECDSA_SIG_get0_s(parts.get()), bytes + number_bytes, number_bytes), number_bytes);
  return r_and_s;
}

}  // namespace

std::string sign_manifest(std::string_view manifest, SigningKey key) {
  const auto& identifier = built_in_keys()[key == SigningKey::primary ? 0 : 1].identifier;
  std::string file = "KVXSIG01";
  file.append(identifier.begin(), identifier.end());
  return file + sign_digest(read_private_key(key), sha256_bytes(manifest));
}

}  // namespace kvx::test
