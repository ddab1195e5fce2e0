#include "engine/installed_record.h"

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "manifest/json.h"
#include "manifest/manifest_limits.h"
#include "manifest/signature.h"

namespace kvx {
namespace {

std::wstring manifest_copy(const std::wstring& staging_dir) { return staging_dir + L"\\installed_manifest.json"; }

std::wstring signature_copy(const std::wstring& staging_dir) { return staging_dir + L"\\installed_manifest.sig"; }

void log_failed_write(const std::wstring& path, uint32_t error) {
  log::write("cannot write %s: %s", to_utf8(file_name(path)).c_str(), error_text(error).c_str());
}

void write_copy(const std::wstring& path, const std::string& bytes, const StopSignal* stop) {
  uint32_t error = 0;
  if (!write_file_atomic(path, bytes, error, stop)) log_failed_write(path, error);
}

void repair_copy(const std::wstring& path, const std::string& bytes, const StopSignal* stop) {
  std::string present;
  if (read_file(path, bytes.size(), present) && present == bytes) return;
  write_copy(path, bytes, stop);
}

}  // namespace

void record_installed(const std::wstring& staging_dir, const std::string& channel, const Release& release,
                      StateFile& state, const StopSignal* stop) {
  write_copy(manifest_copy(staging_dir), release.manifest_bytes, stop);
  write_copy(signature_copy(staging_dir), release.signature_bytes, stop);
  const std::string serial = std::to_string(release.manifest.serial);
  state.set(state_key::installed_version, release.manifest.version);
  state.set(state_key::installed_serial, serial);
  state.set(state_key::installed_channel, channel);
  state.set(state_key::accepted_serial(channel), serial);
  state.set(state_key::complete, "1");
  uint32_t error = 0;
  if (!state.save(error, stop)) log_failed_write(state.path(), error);
}

void repair_installed_copies(const std::wstring& staging_dir, const Release& release, const StopSignal* stop) {
  repair_copy(manifest_copy(staging_dir), release.manifest_bytes, stop);
  repair_copy(signature_copy(staging_dir), release.signature_bytes, stop);
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
  JsonDocument document;
  return verify_manifest(manifest_bytes, signature_bytes, keys, key_name, error) &&
         parse_json(manifest_bytes, document, error) && read_manifest(document.root(), own_name, out, error);
}

}  // namespace kvx
