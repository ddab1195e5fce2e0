#include "tools/kvxpublish/pack.h"

#include <algorithm>
#include <limits>

#include "foundations/files.h"
#include "foundations/text.h"
#include "tools/kvxpublish/game_folder.h"
#include "tools/kvxpublish/manifest_text.h"
#include "tools/kvxpublish/sign.h"
#include "tools/kvxpublish/site.h"

namespace kvx::publish {
namespace {

constexpr uint64_t largest_serial = std::numeric_limits<int64_t>::max();

bool lies_in(const std::wstring& path, const std::wstring& folder) {
  const std::wstring prefix = folder.ends_with(L'\\') ? folder : folder + L'\\';
  return equals_ignore_case(path, folder) || starts_with_ignore_case(path, prefix);
}

bool check_folders(const PackRequest& request, Failure& failure) {
  if (!is_folder(request.game_folder)) {
    return fail(ExitCode::failed, to_utf8(request.game_folder) + ": there is no such folder", failure);
  }
  if (lies_in(request.site, request.game_folder)) {
    return fail(ExitCode::usage,
                to_utf8(request.site) +
                    ": the site lies in the game's folder and would be packed itself; name another "
                    "with --out",
                failure);
  }
  return true;
}

// Launchers never go back to a smaller serial than they have seen.
bool settle_serial(const PackRequest& request, const SitePaths& paths, uint64_t& serial, Failure& failure) {
  serial = request.serial.value_or(1);
  if (!is_file(paths.manifest)) return true;
  std::string bytes;
  if (!read_file(paths.manifest, manifest_limit_bytes, bytes)) {
    return fail(ExitCode::failed, to_utf8(paths.manifest) + ": the published manifest cannot be read", failure);
  }
  Manifest published;
  Failure unreadable;
  if (!check_as_launcher(bytes, request.channel, published, unreadable)) {
    if (request.serial) return true;
    return fail(ExitCode::failed,
                to_utf8(paths.manifest) + ": the published serial cannot be read; give the new one with --serial",
                failure);
  }
  const auto former = static_cast<uint64_t>(published.serial);
  if (!request.serial) {
    serial = former + 1;
    return former < largest_serial ||
           fail(ExitCode::refused, to_utf8(paths.manifest) + ": there is no serial after the published one", failure);
  }
  if (serial < former) {
    return fail(ExitCode::refused,
                "launchers would refuse this release: serial " + std::to_string(serial) +
                    " is smaller than the published " + std::to_string(former) +
                    "; leave --serial out to take the next",
                failure);
  }
  return true;
}

bool describe_launcher(const PackRequest& request, std::optional<LauncherEntry>& launcher, Failure& failure) {
  if (request.launcher.empty()) return true;
  LauncherEntry entry;
  entry.present = true;
  entry.version = request.launcher_version;
  if (!measure_file(request.launcher, entry.size, entry.sha256, failure)) return false;
  launcher = entry;
  return true;
}

bool describe_release(const PackRequest& request, uint64_t serial, ReleaseDescription& release, Failure& failure) {
  release.channel = request.channel;
  release.version = request.version;
  release.exe = request.exe;
  std::ranges::replace(release.exe, '\\', '/');
  release.serial = serial;
  release.args = request.args;
  release.notes = request.notes;
  release.min_free_disk = request.min_free_disk;
  release.remove = request.remove;
  for (std::string& path : release.remove) std::ranges::replace(path, '\\', '/');
  return read_game_folder(request.game_folder, release.files, failure) &&
         describe_launcher(request, release.launcher, failure);
}

bool add_content(const PackRequest& request, const ReleaseDescription& release, SiteWriter& writer, Failure& failure) {
  for (const GameFile& file : release.files) {
    if (!writer.add_content(file.source, file.sha256, file.size, failure)) return false;
  }
  return !release.launcher ||
         writer.add_content(request.launcher, release.launcher->sha256, release.launcher->size, failure);
}

}  // namespace

bool pack(const PackRequest& request, PackSummary& summary, Failure& failure) {
  if (!check_folders(request, failure)) return false;
  if (!is_channel_name(request.channel)) {
    return fail(ExitCode::refused,
                "launchers would refuse the channel \"" + request.channel +
                    R"(": a channel is 1 to 32 characters of a-z, 0-9, "-" and "_")",
                failure);
  }
  PrivateKey key;
  if (!request.key.empty() && !load_key(request.key, key, failure)) return false;

  const SitePaths paths = site_paths(request.site, request.channel);
  ReleaseDescription release;
  uint64_t serial = 0;
  if (!settle_serial(request, paths, serial, failure)) return false;
  if (!describe_release(request, serial, release, failure)) return false;
  const std::string manifest = manifest_text(release);
  Manifest read;
  if (!check_as_launcher(manifest, request.channel, read, failure)) return false;
  std::string signature_file;
  if (!request.key.empty() && !sign_manifest(manifest, key, signature_file, summary.key_identifier, failure)) {
    return false;
  }

  SiteWriter writer(paths);
  if (!writer.prepare(failure)) return false;
  if (!add_content(request, release, writer, failure)) return false;
  if (!writer.publish(manifest, signature_file, failure)) return false;
  summary.serial = serial;
  summary.file_count = release.files.size();
  summary.total_bytes = read.total_size;
  summary.added_count = writer.added_count();
  summary.added_bytes = writer.added_bytes();
  return true;
}

}  // namespace kvx::publish
