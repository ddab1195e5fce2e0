#include "tools/kvxpublish/keys/ecdsa.h"

#include <memory>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

namespace kvx::publish {
namespace {

template <auto release>
struct Release {
  template <typename T>
  void operator()(T* value) const {
    release(value);
  }
};

using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Release<EVP_PKEY_CTX_free>>;
using Number = std::unique_ptr<BIGNUM, Release<BN_clear_free>>;
using ParameterBuilder = std::unique_ptr<OSSL_PARAM_BLD, Release<OSSL_PARAM_BLD_free>>;
using Parameters = std::unique_ptr<OSSL_PARAM, Release<OSSL_PARAM_free>>;
using Signature = std::unique_ptr<ECDSA_SIG, Release<ECDSA_SIG_free>>;

constexpr int coordinate_bytes = 32;
constexpr uint8_t uncompressed_point = 0x04;

bool export_coordinate(const Key& key, const char* name, uint8_t* bytes) {
  BIGNUM* found = nullptr;
  if (EVP_PKEY_get_bn_param(key.get(), name, &found) != 1) return false;
  const Number number(found);
  return BN_bn2binpad(number.get(), bytes, coordinate_bytes) == coordinate_bytes;
}

Parameters key_parameters(const PrivateKey& key) {
  std::array<uint8_t, 1 + std::tuple_size_v<PublicPoint>> point{uncompressed_point};
  std::copy(key.public_point.begin(), key.public_point.end(), point.begin() + 1);
  const Number scalar(BN_bin2bn(key.scalar.data(), static_cast<int>(key.scalar.size()), nullptr));
  const ParameterBuilder builder(OSSL_PARAM_BLD_new());
  const bool built =
      scalar && builder &&
      OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, "prime256v1", 0) == 1 &&
      OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, scalar.get()) == 1 &&
      OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size()) == 1;
  return Parameters(built ? OSSL_PARAM_BLD_to_param(builder.get()) : nullptr);
}

Key import_key(const PrivateKey& key) {
  const Parameters parameters = key_parameters(key);
  const KeyContext context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
  EVP_PKEY* imported = nullptr;
  if (!parameters || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
      EVP_PKEY_fromdata(context.get(), &imported, EVP_PKEY_KEYPAIR, parameters.get()) != 1) {
    return nullptr;
  }
  return Key(imported);
}

bool read_numbers(const uint8_t* der, size_t length, std::array<uint8_t, 64>& r_and_s) {
  const Signature parts(d2i_ECDSA_SIG(nullptr, &der, static_cast<long>(length)));
  return parts && BN_bn2binpad(ECDSA_SIG_get0_r(parts.get()), r_and_s.data(), coordinate_bytes) == coordinate_bytes &&
         BN_bn2binpad(ECDSA_SIG_get0_s(parts.get()), r_and_s.data() + coordinate_bytes, coordinate_bytes) ==
             coordinate_bytes;
}

}  // namespace

bool generate_key(PrivateKey& key) {
  const Key pair(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "prime256v1"));
  return pair && export_coordinate(pair, OSSL_PKEY_PARAM_PRIV_KEY, key.scalar.data()) &&
         export_coordinate(pair, OSSL_PKEY_PARAM_EC_PUB_X, key.public_point.data()) &&
         export_coordinate(pair, OSSL_PKEY_PARAM_EC_PUB_Y, key.public_point.data() + coordinate_bytes);
}

bool sign_digest(Sha256Digest digest, const PrivateKey& key, std::array<uint8_t, 64>& r_and_s) {
  constexpr size_t longest_der = 80;
  const Key pair = import_key(key);
  const KeyContext context(pair ? EVP_PKEY_CTX_new(pair.get(), nullptr) : nullptr);
  std::array<uint8_t, longest_der> der{};
  size_t length = der.size();
  return context && EVP_PKEY_sign_init(context.get()) == 1 &&
         EVP_PKEY_sign(context.get(), der.data(), &length, digest.data(), digest.size()) == 1 &&
         read_numbers(der.data(), length, r_and_s);
}

}  // namespace kvx::publish
