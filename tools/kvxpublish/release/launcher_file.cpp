#include "tools/kvxpublish/release/launcher_file.h"

#include <windows.h>

#include <set>
#include <string_view>
#include <vector>

#include "foundations/files.h"
#include "foundations/text.h"
#include "foundations/version_number.h"
#include "manifest/sha256.h"
#include "tools/kvxpublish/keys/public_keys.h"

namespace kvx::publish {
namespace {

constexpr uint64_t launcher_limit_bytes = 268435456;

constexpr std::string_view marker = "KVXLAUNCHER-VERSION:";
constexpr size_t longest_version = 32;

bool refuse(const std::wstring& path, const std::string& reason, Failure& failure) {
  return fail(ExitCode::refused, to_utf8(path) + ": " + reason, failure);
}

// The versions after the marker; a place that only looks like it does not count.
std::set<std::string> marked_versions(std::string_view program) {
  std::set<std::string> versions;
  for (size_t at = program.find(marker); at != std::string_view::npos; at = program.find(marker, at + 1)) {
    const std::string_view rest = program.substr(at + marker.size(), longest_version + 1);
    const std::string_view version = rest.substr(0, rest.find(';'));
    if (version.size() < rest.size() && is_version(version)) versions.emplace(version);
  }
  return versions;
}

// The numbers of the program's version record; empty when it has none.
std::string recorded_version(const std::wstring& path) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
  std::vector<uint8_t> block(size);
  if (size == 0 || GetFileVersionInfoW(path.c_str(), 0, size, block.data()) == 0) return {};
  void* found = nullptr;
  UINT length = 0;
  if (VerQueryValueW(block.data(), L"\\", &found, &length) == 0 || length < sizeof(VS_FIXEDFILEINFO)) return {};
  const auto* record = static_cast<const VS_FIXEDFILEINFO*>(found);
  return std::to_string(HIWORD(record->dwFileVersionMS)) + '.' + std::to_string(LOWORD(record->dwFileVersionMS)) + '.' +
         std::to_string(HIWORD(record->dwFileVersionLS)) + '.' + std::to_string(LOWORD(record->dwFileVersionLS));
}

bool find_version(const std::wstring& path, std::string_view program, std::string& version, Failure& failure) {
  const std::set<std::string> marked = marked_versions(program);
  if (marked.size() != 1) {
    return refuse(path,
                  marked.empty() ? "has no version marker (KVXLAUNCHER-VERSION); it is no launcher"
                                 : "has version markers that disagree (" + *marked.begin() + " and " +
                                       *std::next(marked.begin()) + "); it is no launcher",
                  failure);
  }
  version = *marked.begin();
  const std::string recorded = recorded_version(path);
  if (recorded.empty()) return refuse(path, "has no version record; build the launcher again", failure);
  return compare_versions(version, recorded) == 0 ||
         refuse(path,
                "its version record says " + recorded + " but the launcher reports " + version +
                    "; build the launcher again",
                failure);
}

// A launcher has the points of its keys as plain bytes.
bool check_knows(const std::wstring& path, std::string_view program, const PublicPoint& signer, Failure& failure) {
  if (program.find(std::string(signer.begin(), signer.end())) != std::string_view::npos) return true;
  PublicKey half{};
  if (!public_half(signer, half)) return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
  return fail(ExitCode::key,
              to_utf8(path) + ": does not know the signing key " + identifier_text(half) +
                  " and would refuse this release; build it with that key",
              failure);
}

}  // namespace

bool describe_launcher_file(const std::wstring& path, const PublicPoint* signer, LauncherEntry& entry,
                            Failure& failure) {
  std::string program;
  if (!is_file(path)) return fail(ExitCode::failed, to_utf8(path) + ": there is no such launcher", failure);
  if (!read_file(path, launcher_limit_bytes, program)) {
    return fail(ExitCode::failed, to_utf8(path) + ": the launcher cannot be read, or is larger than 256 MiB", failure);
  }
  entry.present = true;
  entry.size = program.size();
  if (!find_version(path, program, entry.version, failure)) return false;
  if (signer != nullptr && !check_knows(path, program, *signer, failure)) return false;
  Sha256Hasher hasher;
  if (hasher.update(program.data(), program.size())) entry.sha256 = hasher.finish_text();
  return !entry.sha256.empty() || fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
}

}  // namespace kvx::publish
