#include "manifest/signature.h"

#include <windows.h>
#include <bcrypt.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "manifest/bcrypt_handles.h"
#include "manifest/sha256.h"

namespace kvx {
namespace {

constexpr size_t coordinate_bytes = 32;

// The platform's ECCPUBLICBLOB: its header and the public point.
struct PublicKeyBlob {
  BCRYPT_ECCKEY_BLOB header;
  std::array<uint8_t, 2 * coordinate_bytes> point;
};
static_assert(sizeof(PublicKeyBlob) == 72);

struct SignatureFields {
  std::array<uint8_t, 8> magic;
  std::array<uint8_t, 8> key_identifier;
  std::array<uint8_t, 2 * coordinate_bytes> r_and_s;
};
static_assert(sizeof(SignatureFields) == signature_file_bytes);

bool fail(const char* text, std::string& error) {
  error = text;
  return false;
}

bool read_signature_file(std::string_view file, SignatureFields& fields) {
  if (file.size() != signature_file_bytes || !file.starts_with(signature_magic)) return false;
  std::memcpy(&fields, file.data(), sizeof(fields));
  return true;
}

bool hash_manifest(std::string_view manifest, Sha256Digest& digest) {
  Sha256Hasher hasher;
  return hasher.update(manifest.data(), manifest.size()) && hasher.finish(digest);
}

bool verifies_under(const PublicKey& key, Sha256Digest digest, SignatureFields fields) {
  BCRYPT_ALG_HANDLE opened = nullptr;
  if (BCryptOpenAlgorithmProvider(&opened, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0) != 0) return false;
  const AlgorithmHandle provider(opened);

  PublicKeyBlob blob{{BCRYPT_ECDSA_PUBLIC_P256_MAGIC, coordinate_bytes}, key.public_point};
  BCRYPT_KEY_HANDLE imported = nullptr;
  if (BCryptImportKeyPair(provider.get(), nullptr, BCRYPT_ECCPUBLIC_BLOB, &imported, reinterpret_cast<UCHAR*>(&blob),
                          sizeof(blob), 0) != 0) {
    return false;
  }
  const KeyHandle public_key(imported);
  return BCryptVerifySignature(public_key.get(), nullptr, digest.data(), static_cast<ULONG>(digest.size()),
                               fields.r_and_s.data(), static_cast<ULONG>(fields.r_and_s.size()), 0) == 0;
}

}  // namespace

bool verify_manifest(std::string_view manifest, std::string_view signature_file, std::span<const PublicKey> keys,
                     std::string& key_name, std::string& error) {
  SignatureFields fields{};
  if (!read_signature_file(signature_file, fields)) return fail("signature file has an unknown format", error);
  Sha256Digest digest{};
  if (!hash_manifest(manifest, digest)) return fail("SHA-256 not available", error);
  bool key_matched = false;
  for (const PublicKey& key : keys) {
    if (key.identifier != fields.key_identifier) continue;
    key_matched = true;
    if (verifies_under(key, digest, fields)) {
      key_name = key.name;
      return true;
    }
  }
  return fail(key_matched ? "signature does not match the manifest" : "manifest is signed with an unknown key", error);
}

}  // namespace kvx
