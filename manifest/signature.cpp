#include "manifest/signature.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "manifest/p256.h"
#include "manifest/sha256.h"

namespace kvx {
namespace {

struct SignatureFields {
  std::array<uint8_t, 8> magic;
  std::array<uint8_t, 8> key_identifier;
  P256Signature r_and_s;
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
    if (verify_p256(key.public_point, digest, fields.r_and_s)) {
      key_name = key.name;
      return true;
    }
  }
  return fail(key_matched ? "signature does not match the manifest" : "manifest is signed with an unknown key", error);
}

}  // namespace kvx
