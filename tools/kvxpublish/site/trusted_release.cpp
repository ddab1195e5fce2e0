#include "tools/kvxpublish/site/trusted_release.h"

#include "foundations/clock.h"
#include "manifest/manifest_limits.h"
#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/site/launcher_check.h"

namespace kvx::publish {
namespace {

constexpr uint32_t second_look_pause_ms = 1000;

// Some servers answer with a page of their own, and as if all were well, where a file is missing. A manifest is an
// object.
bool is_no_manifest(const std::string& bytes) {
  const size_t first = bytes.find_first_not_of(" \t\r\n");
  return first == std::string::npos || bytes[first] != '{';
}

// Bytes and signature alone.
Search fetch_trusted(SiteReader& site, const std::string& channel, const std::vector<NamedKey>& keys,
                     PublishedRelease& release, NamedKey& signer, Failure& failure) {
  const Search manifest =
      site.read_file(manifest_name(channel), largest_manifest_bytes, release.manifest_bytes, failure);
  if (manifest != Search::found) return manifest;
  const Search signature = site.read_file(signature_name(channel), largest_signature_bytes, release.signature, failure);
  if (signature == Search::failed) return Search::failed;
  if (signature == Search::absent) release.signature.clear();
  const bool trusted = find_signer(release.manifest_bytes, release.signature, site.name_of(signature_name(channel)),
                                   keys, signer, failure);
  return trusted ? Search::found : Search::failed;
}

}  // namespace

Search find_trusted_release(SiteReader& site, const std::string& channel, const std::vector<NamedKey>& keys,
                            PublishedRelease& release, NamedKey& signer, Failure& failure) {
  const std::string name_there = site.name_of(manifest_name(channel));
  Search search = fetch_trusted(site, channel, keys, release, signer, failure);
  if (search == Search::failed && failure.code == ExitCode::key && is_url(name_there)) {
    sleep_ms(second_look_pause_ms);
    search = fetch_trusted(site, channel, keys, release, signer, failure);
    if (search == Search::failed && failure.code == ExitCode::key && is_no_manifest(release.manifest_bytes)) {
      static_cast<void>(fail(ExitCode::refused,
                             name_there + ": is no JSON; the server answers with some page of its own, so check the "
                                          "URL, and that the site was uploaded there",
                             failure));
    }
  }
  if (search != Search::found || check_as_launcher(release.manifest_bytes, channel, release.manifest, failure)) {
    return search;
  }
  failure.text = name_there + ": " + failure.text;
  return Search::failed;
}

bool read_trusted_release(SiteReader& site, const std::string& channel, const std::vector<NamedKey>& keys,
                          PublishedRelease& release, NamedKey& signer, Failure& failure) {
  const Search search = find_trusted_release(site, channel, keys, release, signer, failure);
  if (search != Search::absent) return search == Search::found;
  return fail(ExitCode::failed,
              site.name_of(manifest_name(channel)) + ": nothing is published on channel \"" + channel +
                  "\"; publish a release, or name another channel with --channel",
              failure);
}

}  // namespace kvx::publish
