#include "engine/installed_record.h"

#include "foundations/files.h"
#include "manifest/json.h"
#include "manifest/manifest_limits.h"
#include "manifest/signature.h"

namespace kvx {
namespace {

std::wstring manifest_copy(const std::wstring& staging_dir) { return staging_dir + L"\\installed_manifest.json"; }

std::wstring signature_copy(const std::wstring& staging_dir) { return staging_dir + L"\\installed_manifest.sig"; }

}  // namespace

void record_installed(const std::wstring& staging_dir, const std::string& channel, const Release& release,
                      StateFile& state) {
  static_cast<void>(write_file_atomic(manifest_copy(staging_dir), release.manifest_bytes));
  static_cast<void>(write_file_atomic(signature_copy(staging_dir), release.signature_bytes));
  const std::string serial = std::to_string(release.manifest.serial);
  state.set(state_key::installed_version, release.manifest.version);
  state.set(state_key::installed_serial, serial);
  state.set(state_key::installed_channel, channel);
  state.set(state_key::accepted_serial(channel), serial);
  state.set(state_key::complete, "1");
  static_cast<void>(state.save());
}

bool load_installed_manifest(const std::wstring& staging_dir, std::wstring_view own_name,
                             std::span<const PublicKey> keys, Manifest& out, std::string& error) {
  std::string manifest_bytes;
  std::string signature_bytes;
  if (!read_file(manifest_copy(staging_dir), largest_manifest_bytes, manifest_bytes)) {
    error = "installed_manifest.json cannot be read";
    return false;
  }
  if (!read_file(signature_copy(staging_dir), largest_signature_bytes, signature_bytes)) {
    error = "installed_manifest.sig cannot be read";
    return false;
  }
  std::string key_name;
  JsonValue root;
  return verify_manifest(manifest_bytes, signature_bytes, keys, key_name, error) &&
         parse_json(manifest_bytes, root, error) && read_manifest(root, own_name, out, error);
}

}  // namespace kvx
