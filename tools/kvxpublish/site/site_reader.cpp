#include "tools/kvxpublish/site/site_reader.h"

#include "manifest/manifest_limits.h"
#include "tools/kvxpublish/site/launcher_check.h"

namespace kvx::publish {
namespace {

std::string channel_prefix(const std::string& channel) { return channel == "live" ? std::string() : channel + '/'; }

}  // namespace

bool is_url(const std::string& location) { return location.find("://") != std::string::npos; }

std::string manifest_name(const std::string& channel) { return channel_prefix(channel) + "manifest.json"; }
std::string signature_name(const std::string& channel) { return channel_prefix(channel) + "manifest.sig"; }
std::string blob_name(const std::string& sha256) { return "files/" + sha256; }

Search read_release(SiteReader& site, const std::string& channel, PublishedRelease& release, Failure& failure) {
  const std::string name = manifest_name(channel);
  const Search manifest = site.read_file(name, largest_manifest_bytes, release.manifest_bytes, failure);
  if (manifest != Search::found) return manifest;
  if (!check_as_launcher(release.manifest_bytes, channel, release.manifest, failure)) {
    failure.text = site.name_of(name) + ": " + failure.text;
    return Search::failed;
  }
  const Search signature = site.read_file(signature_name(channel), largest_signature_bytes, release.signature, failure);
  if (signature == Search::absent) release.signature.clear();
  return signature == Search::failed ? Search::failed : Search::found;
}

}  // namespace kvx::publish
