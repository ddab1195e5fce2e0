#include "tools/kvxpublish/keys/ecdsa.h"

#include <windows.h>
#include <bcrypt.h>

#include "manifest/bcrypt_handles.h"
#include "tools/kvxpublish/keys/wipe.h"

namespace kvx::publish {
namespace {

constexpr uint32_t coordinate_bytes = 32;
constexpr uint32_t key_bits = 256;

// The platform's ECCPRIVATEBLOB.
struct PrivateKeyBlob {
  BCRYPT_ECCKEY_BLOB header;
  PublicPoint point;
  std::array<uint8_t, coordinate_bytes> scalar;
};
static_assert(sizeof(PrivateKeyBlob) == 104);

AlgorithmHandle open_provider() {
  BCRYPT_ALG_HANDLE opened = nullptr;
  if (BCryptOpenAlgorithmProvider(&opened, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0) != 0) return {};
  return AlgorithmHandle(opened);
}

bool export_key(const KeyHandle& pair, PrivateKey& key) {
  PrivateKeyBlob blob{};
  ULONG written = 0;
  const bool exported = BCryptExportKey(pair.get(), nullptr, BCRYPT_ECCPRIVATE_BLOB, reinterpret_cast<UCHAR*>(&blob),
                                        sizeof(blob), &written, 0) == 0 &&
                        written == sizeof(blob) && blob.header.cbKey == coordinate_bytes;
  key = {blob.scalar, blob.point};
  wipe(&blob, sizeof(blob));
  return exported;
}

}  // namespace

bool generate_key(PrivateKey& key) {
  const AlgorithmHandle provider = open_provider();
  if (!provider) return false;
  BCRYPT_KEY_HANDLE generated = nullptr;
  if (BCryptGenerateKeyPair(provider.get(), &generated, key_bits, 0) != 0) return false;
  const KeyHandle pair(generated);
  return BCryptFinalizeKeyPair(pair.get(), 0) == 0 && export_key(pair, key);
}

bool sign_digest(Sha256Digest digest, const PrivateKey& key, std::array<uint8_t, 64>& r_and_s) {
  const AlgorithmHandle provider = open_provider();
  if (!provider) return false;
  PrivateKeyBlob blob{{BCRYPT_ECDSA_PRIVATE_P256_MAGIC, coordinate_bytes}, key.public_point, key.scalar};
  BCRYPT_KEY_HANDLE imported = nullptr;
  const NTSTATUS status = BCryptImportKeyPair(provider.get(), nullptr, BCRYPT_ECCPRIVATE_BLOB, &imported,
                                              reinterpret_cast<UCHAR*>(&blob), sizeof(blob), 0);
  wipe(&blob, sizeof(blob));
  if (status != 0) return false;
  const KeyHandle private_key(imported);
  ULONG written = 0;
  return BCryptSignHash(private_key.get(), nullptr, digest.data(), static_cast<ULONG>(digest.size()), r_and_s.data(),
                        static_cast<ULONG>(r_and_s.size()), &written, 0) == 0 &&
         written == r_and_s.size();
}

}  // namespace kvx::publish
