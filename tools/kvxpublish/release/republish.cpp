#include "tools/kvxpublish/release/republish.h"

#include <algorithm>
#include <limits>

#include "foundations/text.h"
#include "foundations/version_number.h"
#include "tools/kvxpublish/keys/signature_file.h"
#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/manifest_edit.h"
#include "tools/kvxpublish/release/release_names.h"
#include "tools/kvxpublish/release/removals.h"
#include "tools/kvxpublish/release/signing.h"
#include "tools/kvxpublish/remote/content_check.h"
#include "tools/kvxpublish/site/channel_rule.h"
#include "tools/kvxpublish/site/folder_site.h"
#include "tools/kvxpublish/site/launcher_check.h"
#include "tools/kvxpublish/site/release_history.h"
#include "tools/kvxpublish/site/site.h"

namespace kvx::publish {
namespace {

constexpr uint64_t largest_serial = std::numeric_limits<int64_t>::max();

std::vector<GameFile> files_of(const Manifest& manifest) {
  std::vector<GameFile> files;
  files.reserve(manifest.files.size());
  for (const ManifestFile& file : manifest.files) {
    files.push_back({file.path, {}, file.size, 0, std::string(file.sha256)});
  }
  return files;
}

// All files and removals of all of them.
Manifest union_of(const std::vector<PublishedRelease>& releases, const Manifest& base) {
  Manifest all;
  const auto add = [&all](const Manifest& manifest) {
    all.files.insert(all.files.end(), manifest.files.begin(), manifest.files.end());
    all.remove.insert(all.remove.end(), manifest.remove.begin(), manifest.remove.end());
  };
  for (const PublishedRelease& release : releases) add(release.manifest);
  add(base);
  return all;
}

std::vector<std::string> paths_of(const std::vector<ManifestFile>& files) {
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const ManifestFile& file : files) paths.push_back(file.path);
  return paths;
}

}  // namespace

void add_republish_options(CommandOptions command, RepublishOptions& options) {
  const DeclaredOption key =
      command.add_path("--key", options.key, "Sign with this private key, an unencrypted P-256 PEM file")
          .type_name("PEM");
  command.add_flag("--unsigned", options.is_unsigned, "Leave the release unsigned for now").excludes(key);
  command.add_flag("--yes", options.takes_signature_away,
                   "With --unsigned, replace a signed release: no player can update until the new one is signed");
  add_public_keys_option(command, options.public_keys);
}

bool Republishing::prepare(Failure& failure) {
  if (options_.key.empty() && !options_.is_unsigned) {
    return fail(ExitCode::usage, "sign the release with --key PEM, or leave that for later with --unsigned", failure);
  }
  return check_channel(channel_, failure) && load_keys(failure) && lock_.acquire(given_path(site_), failure);
}

bool Republishing::load_keys(Failure& failure) {
  if (!load_trusted_keys(options_.public_keys, keys_, failure)) return false;
  if (options_.is_unsigned) return true;
  NamedKey own{"own", {}};
  if (!load_key(given_path(options_.key), key_, failure)) return false;
  if (!public_half(key_.public_point, own.key)) {
    return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
  }
  keys_.push_back(std::move(own));
  return true;
}

// Every release is in the history before it goes live, so that a broken one costs no serial.
bool Republishing::goes_on_without_live(Failure& failure) {
  if (failure.code != ExitCode::refused) return false;
  if (shipped_.empty()) {
    failure.text +=
        "; there is no history to go on from, so put a good release over it with kvxpublish publish --force";
    return false;
  }
  context_.report.note(failure.text + "; the serial follows that of the newest release in the history");
  return true;
}

bool Republishing::read_live(SiteReader& site, Failure& failure) {
  PublishedRelease live;
  const Search search = read_release(site, channel_, live, failure);
  if (search == Search::failed) return goes_on_without_live(failure);
  if (search == Search::absent) return true;
  live_bytes_ = live.manifest_bytes;
  live_launcher_ = live.manifest.launcher;
  live_is_signed_ = !live.signature.empty();
  NamedKey signer{};
  Failure untrusted;
  live_is_trusted_ = find_signer(live.manifest_bytes, live.signature, site.name_of(signature_name(channel_)), keys_,
                                 signer, untrusted);
  const bool is_in_history = std::ranges::any_of(
      shipped_, [&](const PublishedRelease& release) { return release.manifest_bytes == live.manifest_bytes; });
  if (!is_in_history) shipped_.push_back(std::move(live));
  std::ranges::stable_sort(shipped_, {}, [](const PublishedRelease& release) { return release.manifest.serial; });
  return true;
}

bool Republishing::load_shipped(Failure& failure) {
  const auto site = open_folder_site(site_);
  std::vector<uint64_t> serials;
  if (!list_history(given_path(site_), channel_, serials, failure)) return false;
  for (const uint64_t serial : serials) {
    if (!read_history(*site, channel_, serial, shipped_.emplace_back(), failure)) return false;
  }
  return read_live(*site, failure);
}

bool Republishing::settle_identity(const Manifest& base, ReleaseIdentity& identity, Failure& failure) const {
  identity.channel = channel_;
  const uint64_t before = shipped_.empty() ? 0 : static_cast<uint64_t>(shipped_.back().manifest.serial);
  identity.serial = before + 1;
  if (identity.serial > largest_serial) {
    return fail(ExitCode::serial_conflict, "launchers know no serial after " + std::to_string(before), failure);
  }
  const Manifest all = union_of(shipped_, base);
  identity.remove = removal_list(all, files_of(base), {});
  std::vector<std::string> earlier = paths_of(all.files);
  for (const ManifestRemoval& removal : all.remove) earlier.push_back(removal.path);
  return check_names_against(earlier, paths_of(base.files), failure);
}

bool Republishing::check_content_of(const Manifest& base, Failure& failure) const {
  Problems problems;
  return check_content(site_, content_of(base), ContentDepth::sizes, context_.console, problems, failure) &&
         problems.settle(site_, failure);
}

bool Republishing::check_signature_stays(Failure& failure) const {
  if (!options_.is_unsigned || !live_is_signed_ || options_.takes_signature_away) return true;
  return fail(ExitCode::key,
              path_text(site_paths(given_path(site_), channel_).signature) +
                  ": players could take no release until the new one is signed; sign it now with --key, or work on a "
                  "copy of the site and publish that; --yes takes the signature away all the same",
              failure);
}

// A program that was ended between manifest and signature leaves a release that launchers refuse.
bool Republishing::offers_already(const std::string& manifest) const {
  const bool is_whole = live_is_trusted_ || (options_.is_unsigned && !live_is_signed_);
  return is_whole && !live_bytes_.empty() && same_but_for_serial(manifest, live_bytes_);
}

bool Republishing::publish(const PublishedRelease& base, Failure& failure) {
  ReleaseIdentity identity;
  if (!settle_identity(base.manifest, identity, failure)) return false;
  const std::string manifest = with_identity(base.manifest_bytes, identity);
  if (offers_already(manifest)) {
    return fail(ExitCode::nothing_to_do,
                path_text(site_paths(given_path(site_), channel_).manifest) + ": has the same content already",
                failure);
  }
  Manifest read;
  return check_signature_stays(failure) && check_as_launcher(manifest, channel_, read, failure) &&
         check_content_of(read, failure) && write(manifest, read, failure);
}

void Republishing::note_launcher(const LauncherEntry& launcher) const {
  if (!live_launcher_.present) return;
  if (!launcher.present) {
    context_.report.note("the release before hands out launcher " + live_launcher_.version +
                         " and this one none; launchers that have it already keep it");
  } else if (compare_versions(launcher.version, live_launcher_.version) < 0) {
    context_.report.note("launcher " + launcher.version + " is older than " + live_launcher_.version +
                         " of the release before, and launchers never go back");
  }
}

bool Republishing::write(const std::string& manifest, const Manifest& read, Failure& failure) {
  std::string signature_file;
  std::string key_identifier;
  if (!options_.is_unsigned && !sign_manifest(manifest, key_, signature_file, key_identifier, failure)) return false;
  const auto serial = static_cast<uint64_t>(read.serial);
  SiteWriter writer(site_paths(given_path(site_), channel_));
  if (!writer.prepare(failure) || !writer.publish(serial, manifest, signature_file, failure)) return false;
  Report& report = context_.report;
  report.add("channel", channel_);
  report.add("version", read.version);
  report.add("serial", serial);
  report.add("files", read.files.size());
  report.add("bytes", read.total_size);
  report.add("removals", read.remove.size());
  note_launcher(read.launcher);
  if (options_.is_unsigned) {
    report.note("the release is not signed yet, and launchers refuse it until it is");
    report.next_step("kvxpublish digest \"" + site_ + "\" --channel " + channel_);
    return true;
  }
  report.add("key", key_identifier);
  suggest_verify({site_, channel_, options_.public_keys}, key_identifier, report);
  return true;
}

}  // namespace kvx::publish
