#include "tools/kvxpublish/release/pack.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "foundations/text.h"
#include "foundations/version_number.h"
#include "tools/kvxpublish/keys/signature_file.h"
#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/content_pass.h"
#include "tools/kvxpublish/release/earlier_releases.h"
#include "tools/kvxpublish/release/game_folder.h"
#include "tools/kvxpublish/release/launcher_file.h"
#include "tools/kvxpublish/release/manifest_text.h"
#include "tools/kvxpublish/release/private_key_check.h"
#include "tools/kvxpublish/release/release_names.h"
#include "tools/kvxpublish/release/removals.h"
#include "tools/kvxpublish/release/same_release.h"
#include "tools/kvxpublish/site/channel_rule.h"
#include "tools/kvxpublish/site/launcher_check.h"
#include "tools/kvxpublish/site/site.h"
#include "tools/kvxpublish/site/site_lock.h"

namespace kvx::publish {
namespace {

constexpr uint64_t notes_limit_bytes = 1048576;

// What an install needs beside its files: the launcher's own state, and up to a cluster more for each file.
constexpr uint64_t state_room_bytes = 16777216;
constexpr uint64_t cluster_bytes = 4096;

std::string with_slashes(std::string path) {
  std::ranges::replace(path, '\\', '/');
  return path;
}

bool read_notes(const fs::path& path, std::string& notes, Failure& failure) {
  if (path.empty()) return true;
  const std::string name = path_text(path);
  if (!is_file(path)) return fail(ExitCode::failed, name + ": there is no such file with notes", failure);
  if (!read_file(path, notes_limit_bytes, notes)) {
    return fail(ExitCode::failed, name + ": the notes cannot be read, or are larger than 1 MiB", failure);
  }
  constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
  if (notes.starts_with(byte_order_mark)) notes.erase(0, byte_order_mark.size());
  while (notes.ends_with('\n') || notes.ends_with('\r')) notes.pop_back();
  return to_utf8(to_wide(notes)) == notes ||
         fail(ExitCode::refused, name + ": the notes are not UTF-8 text; save them as UTF-8", failure);
}

// The most that an install can need beside its downloads: files with equal content are downloaded once and installed
// each.
uint64_t needed_free_disk(const std::vector<GameFile>& files) {
  uint64_t bytes = state_room_bytes;
  std::set<std::string_view> seen;
  for (const GameFile& file : files) bytes += cluster_bytes + (seen.insert(file.sha256).second ? 0 : file.size);
  return bytes;
}

std::vector<std::string> paths_of(const std::vector<GameFile>& files) {
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const GameFile& file : files) paths.push_back(file.path);
  return paths;
}

// Everything that a player may still have of the releases before.
std::vector<std::string> paths_of(const Manifest& previous) {
  std::vector<std::string> paths;
  paths.reserve(previous.files.size() + previous.remove.size());
  for (const ManifestFile& file : previous.files) paths.push_back(file.path);
  for (const ManifestRemoval& removal : previous.remove) paths.push_back(removal.path);
  return paths;
}

// One run of the command, used once.
class Packing {
 public:
  Packing(const PackRequest& request, Console& console, PackSummary& summary, Failure& failure)
      : request_(request), console_(console), summary_(summary), failure_(failure) {}

  bool run() {
    return check_request() && lock_.acquire(request_.site, failure_) && load_earlier_releases() && describe() &&
           check_names() && check_for_news() && write();
  }

 private:
  bool fail_with(ExitCode code, std::string text) { return fail(code, std::move(text), failure_); }

  bool check_request() {
    if (!is_folder(request_.game_folder)) {
      return fail_with(ExitCode::failed, path_text(request_.game_folder) + ": there is no such folder");
    }
    if (lies_in(request_.site, request_.game_folder)) {
      return fail_with(ExitCode::usage, path_text(request_.site) +
                                            ": the site lies in the game's folder and would be packed itself; name "
                                            "another with --out");
    }
    return check_channel(request_.channel, failure_) && load_keys();
  }

  // Whoever holds the signing key trusts it, too.
  bool load_keys() {
    if (!load_trusted_keys(request_.public_keys, trusted_keys_, failure_)) return false;
    if (request_.key.empty()) return true;
    NamedKey own{"own", {}};
    if (!load_key(request_.key, key_, failure_)) return false;
    if (!public_half(key_.public_point, own.key)) {
      return fail_with(ExitCode::failed, "SHA-256 is not available on this system");
    }
    trusted_keys_.push_back(std::move(own));
    return true;
  }

  bool load_earlier_releases() {
    return load_previous(request_.previous, request_.channel, trusted_keys_, earlier_, failure_) &&
           load_published(path_text(request_.site), request_.channel, request_.serial.has_value(), earlier_,
                          failure_) &&
           settle_serial(earlier_, request_.serial, release_.serial, failure_);
  }

  bool describe() {
    release_.channel = request_.channel;
    release_.version = request_.version;
    release_.exe = with_slashes(request_.exe);
    release_.args = request_.args;
    return read_notes(request_.notes, release_.notes, failure_) && describe_launcher() && describe_files();
  }

  bool describe_launcher() {
    const LauncherEntry before = earlier_.previous ? earlier_.previous->launcher : LauncherEntry();
    if (request_.launcher.empty()) {
      if (before.present) {
        summary_.notes.push_back("the release before hands out launcher " + before.version +
                                 " and this one none; add --launcher to keep it");
      }
      return true;
    }
    LauncherEntry entry;
    const PublicPoint* const signer = request_.key.empty() ? nullptr : &key_.public_point;
    if (!describe_launcher_file(request_.launcher, signer, entry, failure_)) return false;
    if (signer == nullptr) {
      summary_.notes.emplace_back("the launcher must know the key that will sign; nothing has checked that");
    }
    if (before.present && compare_versions(entry.version, before.version) < 0) {
      summary_.notes.push_back("launcher " + entry.version + " is older than " + before.version +
                               " of the release before, and launchers never go back");
    }
    release_.launcher = std::move(entry);
    return true;
  }

  bool describe_files() {
    std::vector<std::string> unused;
    if (!list_game_folder(request_.game_folder, request_.exclude, release_.files, unused, failure_)) return false;
    if (!check_key_is_elsewhere(release_.files, request_.key, failure_)) return false;
    summary_.notes.reserve(unused.size());
    for (const std::string& pattern : unused) summary_.notes.push_back("--exclude " + pattern + " matched nothing");
    std::vector<std::string> remove;
    remove.reserve(request_.remove.size());
    for (const std::string& path : request_.remove) remove.push_back(with_slashes(path));
    release_.remove = removal_list(earlier_.previous.value_or(Manifest()), release_.files, remove);
    if (!earlier_.previous && earlier_.published_serial) {
      summary_.notes.emplace_back(
          "without --previous, files of earlier releases that this one has not stay with the players");
    }
    return true;
  }

  // Everything that names and sizes can show, before any file is opened or written.
  bool check_names() {
    const std::vector<std::string> paths = paths_of(release_.files);
    if (!check_release_names(paths, failure_)) return false;
    if (earlier_.previous && !check_names_against(paths_of(*earlier_.previous), paths, failure_)) return false;
    ReleaseDescription trial = release_;
    for (GameFile& file : trial.files) file.sha256.assign(64, '0');  // any digest will do
    return check_as_launcher(manifest_text(trial), request_.channel, failure_);
  }

  // Only a release that looks the same from outside is worth reading once more. One without a signature is news when it
  // gets one.
  bool check_for_news() {
    if (!earlier_.previous || (!earlier_.previous_is_signed && !request_.key.empty())) return true;
    if (!looks_like(release_, *earlier_.previous)) return true;
    if (!measure_files(release_.files, console_, failure_)) return false;
    settle_free_disk();
    return !has_same_content(release_, *earlier_.previous) ||
           fail_with(ExitCode::nothing_to_do, earlier_.previous_name + ": has the same content already, as serial " +
                                                  std::to_string(earlier_.previous->serial));
  }

  void settle_free_disk() {
    release_.min_free_disk = request_.min_free_disk.value_or(needed_free_disk(release_.files));
  }

  bool write() {
    SiteWriter writer(site_paths(request_.site, request_.channel));
    if (!writer.prepare(failure_) || !store_files(release_.files, writer, console_, failure_) ||
        !store_launcher(writer)) {
      return false;
    }
    settle_free_disk();
    const std::string manifest = manifest_text(release_);
    std::string signature_file;
    Manifest read;
    if (!check_as_launcher(manifest, request_.channel, read, failure_) ||
        !check_republished(earlier_, release_.serial, manifest, failure_) || !sign(manifest, signature_file) ||
        !writer.publish(release_.serial, manifest, signature_file, failure_)) {
      return false;
    }
    sum_up(read, writer);
    return true;
  }

  bool store_launcher(SiteWriter& writer) {
    return !release_.launcher ||
           writer.add_content(request_.launcher, release_.launcher->sha256, release_.launcher->size, failure_);
  }

  bool sign(const std::string& manifest, std::string& signature_file) {
    return request_.key.empty() || sign_manifest(manifest, key_, signature_file, summary_.key_identifier, failure_);
  }

  void sum_up(const Manifest& read, const SiteWriter& writer) {
    summary_.serial = release_.serial;
    summary_.file_count = read.files.size();
    summary_.total_bytes = read.total_size;
    summary_.removal_count = read.remove.size();
    summary_.added_count = writer.added_count();
    summary_.added_bytes = writer.added_bytes();
    summary_.launcher_version = read.launcher.version;
  }

  const PackRequest& request_;
  Console& console_;
  PackSummary& summary_;
  Failure& failure_;
  SiteLock lock_;
  PrivateKey key_;
  std::vector<NamedKey> trusted_keys_;
  EarlierReleases earlier_;
  ReleaseDescription release_;
};

}  // namespace

bool pack(const PackRequest& request, Console& console, PackSummary& summary, Failure& failure) {
  return Packing(request, console, summary, failure).run();
}

}  // namespace kvx::publish
