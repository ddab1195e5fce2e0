#include "tools/kvxpublish/sign.h"

#include <windows.h>
#include <bcrypt.h>

#include <array>
#include <span>

#include "foundations/files.h"
#include "foundations/text.h"
#include "manifest/bcrypt_handles.h"
#include "manifest/sha256.h"
#include "manifest/signature.h"
#include "tools/kvxpublish/manifest_text.h"
#include "tools/kvxpublish/site.h"

namespace kvx::publish {
namespace {

constexpr uint64_t key_file_limit_bytes = 65536;
constexpr size_t coordinate_bytes = 32;

// The platform's ECCPRIVATEBLOB.
struct PrivateKeyBlob {
  BCRYPT_ECCKEY_BLOB header;
  std::array<uint8_t, 2 * coordinate_bytes> point;
  std::array<uint8_t, coordinate_bytes> scalar;
};
static_assert(sizeof(PrivateKeyBlob) == 104);

bool sign_digest(Sha256Digest digest, const PrivateKey& key, std::array<uint8_t, 2 * coordinate_bytes>& r_and_s) {
  BCRYPT_ALG_HANDLE opened = nullptr;
  if (BCryptOpenAlgorithmProvider(&opened, BCRYPT_ECDSA_P256_ALGORITHM, nullptr, 0) != 0) return false;
  const AlgorithmHandle provider(opened);

  PrivateKeyBlob blob{{BCRYPT_ECDSA_PRIVATE_P256_MAGIC, coordinate_bytes}, key.public_point, key.scalar};
  BCRYPT_KEY_HANDLE imported = nullptr;
  const NTSTATUS status = BCryptImportKeyPair(provider.get(), nullptr, BCRYPT_ECCPRIVATE_BLOB, &imported,
                                              reinterpret_cast<UCHAR*>(&blob), sizeof(blob), 0);
  SecureZeroMemory(&blob, sizeof(blob));
  if (status != 0) return false;
  const KeyHandle private_key(imported);
  ULONG written = 0;
  return BCryptSignHash(private_key.get(), nullptr, digest.data(), static_cast<ULONG>(digest.size()), r_and_s.data(),
                        static_cast<ULONG>(r_and_s.size()), &written, 0) == 0 &&
         written == r_and_s.size();
}

void append(std::span<const uint8_t> bytes, std::string& out) { out.append(bytes.begin(), bytes.end()); }

}  // namespace

bool load_key(const std::wstring& path, PrivateKey& key, Failure& failure) {
  const std::string name = to_utf8(path);
  std::string pem;
  if (!is_file(path)) return fail(ExitCode::key, name + ": there is no such key file", failure);
  if (!read_file(path, key_file_limit_bytes, pem)) {
    return fail(ExitCode::key, name + ": the key file cannot be read", failure);
  }
  std::string error;
  const bool read = read_private_key(pem, key, error);
  SecureZeroMemory(pem.data(), pem.size());
  return read || fail(ExitCode::key, name + ": the key " + error, failure);
}

bool sign_manifest(std::string_view manifest, const PrivateKey& key, std::string& signature_file,
                   std::string& key_identifier, Failure& failure) {
  PublicKey half{};
  Sha256Hasher hasher;
  Sha256Digest digest{};
  if (!public_half(key, half) || !hasher.update(manifest.data(), manifest.size()) || !hasher.finish(digest)) {
    return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
  }
  std::array<uint8_t, 2 * coordinate_bytes> r_and_s{};
  if (!sign_digest(digest, key, r_and_s)) {
    return fail(ExitCode::key, "the system's cryptography did not take the key; its public point may not belong to it",
                failure);
  }
  signature_file = signature_magic;
  append(half.identifier, signature_file);
  append(r_and_s, signature_file);

  std::string key_name;
  std::string error;
  if (!verify_manifest(manifest, signature_file, std::span(&half, 1), key_name, error)) {
    return fail(ExitCode::key,
                "the new signature does not verify (" + error + "); the key's public point may not belong to it",
                failure);
  }
  key_identifier = to_hex(half.identifier.data(), half.identifier.size());
  return true;
}

bool sign_site(const std::wstring& site, const std::string& channel, const std::wstring& key_path,
               std::string& key_identifier, Failure& failure) {
  PrivateKey key;
  if (!load_key(key_path, key, failure)) return false;
  const SitePaths paths = site_paths(site, channel);
  if (!is_file(paths.manifest)) {
    return fail(ExitCode::failed,
                to_utf8(paths.manifest) + ": there is nothing to sign; pack a release of channel \"" + channel +
                    "\" first, or name another with --channel",
                failure);
  }
  std::string manifest;
  if (!read_file(paths.manifest, manifest_limit_bytes, manifest)) {
    return fail(ExitCode::failed, to_utf8(paths.manifest) + ": cannot be read, or is larger than 64 MiB", failure);
  }
  if (!check_as_launcher(manifest, channel, failure)) return false;
  std::string signature_file;
  if (!sign_manifest(manifest, key, signature_file, key_identifier, failure)) return false;
  if (!write_file_atomic(paths.signature, signature_file)) {
    return fail(ExitCode::failed, to_utf8(paths.signature) + ": cannot be written", failure);
  }
  return true;
}

}  // namespace kvx::publish
