#include "tools/kvxpublish/keys/signature_file.h"

#include <span>

#include "manifest/sha256.h"
#include "manifest/signature.h"
#include "tools/kvxpublish/keys/ecdsa.h"
#include "tools/kvxpublish/keys/public_keys.h"
#include "tools/kvxpublish/keys/wipe.h"
#include "tools/kvxpublish/platform/files.h"

namespace kvx::publish {
namespace {

constexpr uint64_t key_file_limit_bytes = 65536;

void append(std::span<const uint8_t> bytes, std::string& out) { out.append(bytes.begin(), bytes.end()); }

}  // namespace

bool load_key_file(const fs::path& path, std::string& pem, Failure& failure) {
  const std::string name = path_text(path);
  if (!is_file(path)) return fail(ExitCode::key, name + ": there is no such key file", failure);
  return read_file(path, key_file_limit_bytes, pem) ||
         fail(ExitCode::key, name + ": the key file cannot be read", failure);
}

bool load_key(const fs::path& path, PrivateKey& key, Failure& failure) {
  std::string pem;
  if (!load_key_file(path, pem, failure)) return false;
  std::string error;
  const bool read = read_private_key(pem, key, error);
  wipe(pem.data(), pem.size());
  return read || fail(ExitCode::key, path_text(path) + ": the key " + error, failure);
}

std::string signature_file_of(const PublicKey& key, const std::array<uint8_t, 64>& r_and_s) {
  std::string file(signature_magic);
  append(key.identifier, file);
  append(r_and_s, file);
  return file;
}

bool sign_manifest(std::string_view manifest, const PrivateKey& key, std::string& signature_file,
                   std::string& key_identifier, Failure& failure) {
  PublicKey half{};
  Sha256Hasher hasher;
  Sha256Digest digest{};
  if (!public_half(key.public_point, half) || !hasher.update(manifest.data(), manifest.size()) ||
      !hasher.finish(digest)) {
    return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
  }
  std::array<uint8_t, 64> r_and_s{};
  if (!sign_digest(digest, key, r_and_s)) {
    return fail(ExitCode::key, "the system's cryptography did not take the key; its public point may not belong to it",
                failure);
  }
  signature_file = signature_file_of(half, r_and_s);
  std::string key_name;
  std::string error;
  if (!verify_manifest(manifest, signature_file, std::span(&half, 1), key_name, error)) {
    return fail(ExitCode::key,
                "the new signature does not verify (" + error + "); the key's public point may not belong to it",
                failure);
  }
  key_identifier = identifier_text(half);
  return true;
}

}  // namespace kvx::publish
