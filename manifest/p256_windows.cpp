#include <windows.h>
#include <bcrypt.h>

#include "manifest/bcrypt_handles.h"
#include "manifest/p256.h"

namespace kvx {
namespace {

constexpr uint32_t coordinate_bytes = 32;

// The platform's ECCPUBLICBLOB: its header and the public point.
struct PublicKeyBlob {
  BCRYPT_ECCKEY_BLOB header;
  P256Point point;
};
static_assert(sizeof(PublicKeyBlob) == 72);

}  // namespace

bool verify_p256(const P256Point& public_point, const Sha256Digest& digest, const P256Signature& signature) {
  BCRYPT_ALG_HANDLE opened = nullptr;
  if (BCryptOpenAlgorithmProvider(&opened, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0) != 0) return false;
  const AlgorithmHandle provider(opened);

  PublicKeyBlob blob{{BCRYPT_ECDSA_PUBLIC_P256_MAGIC, coordinate_bytes}, public_point};
  BCRYPT_KEY_HANDLE imported = nullptr;
  if (BCryptImportKeyPair(provider.get(), nullptr, BCRYPT_ECCPUBLIC_BLOB, &imported, reinterpret_cast<UCHAR*>(&blob),
                          sizeof(blob), 0) != 0) {
    return false;
  }
  const KeyHandle public_key(imported);
  // The platform's parameters are not const, though it only reads.
  Sha256Digest hash = digest;
  P256Signature r_and_s = signature;
  return BCryptVerifySignature(public_key.get(), nullptr, hash.data(), static_cast<ULONG>(hash.size()), r_and_s.data(),
                               static_cast<ULONG>(r_and_s.size()), 0) == 0;
}

}  // namespace kvx
