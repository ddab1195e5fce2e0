#include <algorithm>
#include <memory>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "manifest/p256.h"

namespace kvx {
namespace {

template <auto release>
struct Release {
  template <typename T>
  void operator()(T* value) const {
    release(value);
  }
};

using PublicKeyPointer = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Release<EVP_PKEY_CTX_free>>;
using SignaturePointer = std::unique_ptr<ECDSA_SIG, Release<ECDSA_SIG_free>>;

// SubjectPublicKeyInfo (RFC 5480) of an uncompressed point on P-256, up to the point.
constexpr std::array<uint8_t, 27> public_key_head = {0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2A, 0x86, 0x48,
                                                     0xCE, 0x3D, 0x02, 0x01, 0x06, 0x08, 0x2A, 0x86, 0x48,
                                                     0xCE, 0x3D, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00, 0x04};

PublicKeyPointer import_key(const P256Point& point) {
  std::array<uint8_t, public_key_head.size() + std::tuple_size_v<P256Point>> der{};
  std::copy(point.begin(), point.end(), std::copy(public_key_head.begin(), public_key_head.end(), der.begin()));
  const uint8_t* next = der.data();
  return PublicKeyPointer(d2i_PUBKEY(nullptr, &next, static_cast<long>(der.size())));
}

// The DER form of a signature, empty on failure.
std::string to_der(const P256Signature& signature) {
  constexpr int number_bytes = 32;
  const SignaturePointer parts(ECDSA_SIG_new());
  BIGNUM* r = BN_bin2bn(signature.data(), number_bytes, nullptr);
  BIGNUM* s = BN_bin2bn(signature.data() + number_bytes, number_bytes, nullptr);
  if (!parts || ECDSA_SIG_set0(parts.get(), r, s) != 1) {
    BN_free(r);
    BN_free(s);
    return {};
  }
  uint8_t* encoded = nullptr;
  const int length = i2d_ECDSA_SIG(parts.get(), &encoded);
  std::string der = length > 0 ? std::string(reinterpret_cast<const char*>(encoded), static_cast<size_t>(length)) : "";
  OPENSSL_free(encoded);
  return der;
}

}  // namespace

bool verify_p256(const P256Point& public_point, const Sha256Digest& digest, const P256Signature& signature) {
  const PublicKeyPointer key = import_key(public_point);
  const std::string der = to_der(signature);
  if (!key || der.empty()) return false;
  const KeyContext context(EVP_PKEY_CTX_new(key.get(), nullptr));
  return context && EVP_PKEY_verify_init(context.get()) == 1 &&
         EVP_PKEY_verify(context.get(), reinterpret_cast<const uint8_t*>(der.data()), der.size(), digest.data(),
                         digest.size()) == 1;
}

}  // namespace kvx
