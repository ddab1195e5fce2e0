#include "tools/kvxpublish/release/launcher_file.h"

#include <set>
#include <string_view>
#include <vector>

#include "foundations/version_number.h"
#include "manifest/sha256.h"
#include "tools/kvxpublish/keys/public_keys.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {
namespace {

constexpr uint64_t launcher_limit_bytes = 268435456;

constexpr std::string_view marker = "KVXLAUNCHER-VERSION:";
constexpr size_t longest_version = 32;

bool refuse(const fs::path& path, const std::string& reason, Failure& failure) {
  return fail(ExitCode::refused, path_text(path) + ": " + reason, failure);
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

uint32_t little_endian(std::string_view bytes) {
  uint32_t value = 0;
  for (size_t i = 0; i < sizeof(value); ++i) value |= uint32_t{static_cast<uint8_t>(bytes[i])} << (8 * i);
  return value;
}

std::string utf16(std::string_view ascii) {
  std::string bytes;
  for (const char character : ascii) bytes.append({character, '\0'});
  return bytes;
}

// The numbers of the program's version record (VS_VERSION_INFO, whose fixed part VS_FIXEDFILEINFO begins with a
// signature); empty when it has none.
std::string recorded_version(std::string_view program) {
  constexpr uint32_t signature = 0xFEEF04BD;
  constexpr size_t alignment = 4;
  constexpr size_t version_at = 8;  // after the signature and the record's own version
  static const std::string name = utf16("VS_VERSION_INFO") + std::string(2, '\0');
  for (size_t at = program.find(name); at != std::string_view::npos; at = program.find(name, at + 1)) {
    for (size_t start = at + name.size(); start < at + name.size() + alignment; ++start) {
      if (start + version_at + 8 > program.size() || little_endian(program.substr(start)) != signature) continue;
      const uint32_t high = little_endian(program.substr(start + version_at));
      const uint32_t low = little_endian(program.substr(start + version_at + 4));
      return std::to_string(high >> 16) + '.' + std::to_string(high & 0xFFFF) + '.' + std::to_string(low >> 16) + '.' +
             std::to_string(low & 0xFFFF);
    }
  }
  return {};
}

bool find_version(const fs::path& path, std::string_view program, std::string& version, Failure& failure) {
  const std::set<std::string> marked = marked_versions(program);
  if (marked.size() != 1) {
    return refuse(path,
                  marked.empty() ? "has no version marker (KVXLAUNCHER-VERSION); it is no launcher"
                                 : "has version markers that disagree (" + *marked.begin() + " and " +
                                       *std::next(marked.begin()) + "); it is no launcher",
                  failure);
  }
  version = *marked.begin();
  const std::string recorded = recorded_version(program);
  if (recorded.empty()) return refuse(path, "has no version record; build the launcher again", failure);
  return compare_versions(version, recorded) == 0 ||
         refuse(path,
                "its version record says " + recorded + " but the launcher reports " + version +
                    "; build the launcher again",
                failure);
}

// A launcher has the points of its keys as plain bytes.
bool check_knows(const fs::path& path, std::string_view program, const PublicPoint& signer, Failure& failure) {
  if (program.find(std::string(signer.begin(), signer.end())) != std::string_view::npos) return true;
  PublicKey half{};
  if (!public_half(signer, half)) return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
  return fail(ExitCode::key,
              path_text(path) + ": does not know the signing key " + identifier_text(half) +
                  " and would refuse this release; build it with that key",
              failure);
}

}  // namespace

bool describe_launcher_file(const fs::path& path, const PublicPoint* signer, LauncherEntry& entry, Failure& failure) {
  std::string program;
  if (!is_file(path)) return fail(ExitCode::failed, path_text(path) + ": there is no such launcher", failure);
  if (!read_file(path, launcher_limit_bytes, program)) {
    return fail(ExitCode::failed, path_text(path) + ": the launcher cannot be read, or is larger than 256 MiB",
                failure);
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
