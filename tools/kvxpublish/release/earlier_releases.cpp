#include "tools/kvxpublish/release/earlier_releases.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/remote/site_opener.h"
#include "tools/kvxpublish/site/folder_site.h"
#include "tools/kvxpublish/site/release_history.h"
#include "tools/kvxpublish/site/site_reader.h"
#include "tools/kvxpublish/site/trusted_release.h"

namespace kvx::publish {
namespace {

constexpr uint64_t largest_serial = std::numeric_limits<int64_t>::max();

bool refuse_serial(uint64_t serial, uint64_t known, const std::string& where, Failure& failure) {
  return fail(ExitCode::serial_conflict,
              "serial " + std::to_string(serial) + " is not larger than " + std::to_string(known) + ", which " + where +
                  " has; leave --serial out to take the next",
              failure);
}

bool load_kept(const SiteReader& site, const std::string& folder, const std::string& channel, EarlierReleases& earlier,
               Failure& failure) {
  std::vector<uint64_t> serials;
  if (!list_history(given_path(folder), channel, serials, failure)) return false;
  if (serials.empty()) return true;
  earlier.kept_serial = serials.back();
  earlier.kept_name = site.name_of(history_manifest_name(channel, serials.back()));
  return true;
}

Search read_previous(SiteReader& site, const PreviousSource& previous, const std::string& channel,
                     const std::vector<NamedKey>& keys, PublishedRelease& release, Failure& failure) {
  const bool is_folder = !is_url(previous.site);
  if (is_folder && previous.trust_unsigned) {
    const Search search = read_release(site, channel, release, failure);
    if (search != Search::found || release.signature.empty()) return search;
  }
  NamedKey signer{};
  const Search search = find_trusted_release(site, channel, keys, release, signer, failure);
  if (is_folder && search == Search::failed && failure.code == ExitCode::key && release.signature.empty()) {
    failure.text += ", or take it as it is with --trust-unsigned-previous";
  }
  return search;
}

}  // namespace

bool load_previous(const PreviousSource& previous, const std::string& channel, const std::vector<NamedKey>& keys,
                   EarlierReleases& earlier, Failure& failure) {
  if (previous.site.empty()) return true;
  if (previous.trust_unsigned && is_url(previous.site)) {
    return fail(ExitCode::usage, "--trust-unsigned-previous is for a folder; what comes from a server must be signed",
                failure);
  }
  std::unique_ptr<SiteReader> site;
  PublishedRelease release;
  if (!open_site(previous.site, site, failure)) return false;
  earlier.previous_name = site->name_of(manifest_name(channel));
  const Search search = read_previous(*site, previous, channel, keys, release, failure);
  if (search == Search::absent) {
    return fail(ExitCode::failed,
                earlier.previous_name +
                    ": there is no release before this one; leave --previous out for the first of a channel",
                failure);
  }
  earlier.previous = std::move(release.manifest);
  earlier.previous_is_signed = !release.signature.empty();
  return search == Search::found;
}

bool load_published(const std::string& site, const std::string& channel, bool serial_is_given, EarlierReleases& earlier,
                    Failure& failure) {
  const auto reader = open_folder_site(site);
  earlier.published_name = reader->name_of(manifest_name(channel));
  if (!load_kept(*reader, site, channel, earlier, failure)) return false;
  PublishedRelease release;
  Failure unreadable;
  const Search search = read_release(*reader, channel, release, unreadable);
  if (search == Search::failed) {
    return serial_is_given ||
           fail(ExitCode::failed,
                earlier.published_name + ": the published serial cannot be read; give the new one with --serial",
                failure);
  }
  if (search == Search::absent) return true;
  earlier.published_serial = static_cast<uint64_t>(release.manifest.serial);
  earlier.published_bytes = std::move(release.manifest_bytes);
  return true;
}

bool settle_serial(const EarlierReleases& earlier, const std::optional<uint64_t>& wanted, uint64_t& serial,
                   Failure& failure) {
  std::optional<uint64_t> before;
  if (earlier.previous) before = static_cast<uint64_t>(earlier.previous->serial);
  if (wanted) {
    serial = *wanted;
    if (before && serial <= *before) return refuse_serial(serial, *before, earlier.previous_name, failure);
    if (earlier.published_serial && serial < *earlier.published_serial) {
      return refuse_serial(serial, *earlier.published_serial, earlier.published_name, failure);
    }
    if (earlier.kept_serial && serial < *earlier.kept_serial) {
      return refuse_serial(serial, *earlier.kept_serial, earlier.kept_name, failure);
    }
    return true;
  }
  // Nothing is less than any.
  const std::optional<uint64_t> largest = std::max({before, earlier.published_serial, earlier.kept_serial});
  serial = largest ? *largest + 1 : 1;
  return serial <= largest_serial ||
         fail(ExitCode::serial_conflict, "launchers know no serial after " + std::to_string(serial - 1), failure);
}

bool check_republished(const EarlierReleases& earlier, uint64_t serial, const std::string& manifest, Failure& failure) {
  if (serial != earlier.published_serial || manifest == earlier.published_bytes) return true;
  return refuse_serial(serial, serial, earlier.published_name, failure);
}

}  // namespace kvx::publish
