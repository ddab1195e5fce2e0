#include "tools/kvxpublish/site/release_history.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "foundations/text.h"
#include "manifest/manifest_limits.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/folders.h"
#include "tools/kvxpublish/site/launcher_check.h"
#include "tools/kvxpublish/site/site.h"

namespace kvx::publish {
namespace {

// With ".json", "12.json" is serial 12; "012.json" and "x.json" are none.
bool read_serial(const std::string& name, const char* ending, uint64_t& serial) {
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), serial);
  return error == std::errc() && std::to_string(serial) + ending == name;
}

bool list_serials(const fs::path& folder, const char* ending, std::vector<uint64_t>& serials, Failure& failure) {
  serials.clear();
  std::vector<FolderEntry> entries;
  if (!list_entries(folder, entries, failure)) return false;
  for (const FolderEntry& entry : entries) {
    uint64_t serial = 0;
    if (entry.kind != FileKind::folder && read_serial(path_text(entry.name), ending, serial)) serials.push_back(serial);
  }
  std::ranges::sort(serials);
  return true;
}

std::string history_stem(const std::string& channel, uint64_t serial) {
  return "history/" + channel + '/' + std::to_string(serial);
}

}  // namespace

bool list_history(const fs::path& site, const std::string& channel, std::vector<uint64_t>& serials, Failure& failure) {
  return list_serials(site_paths(site, channel).history, ".json", serials, failure);
}

bool list_history_signatures(const fs::path& site, const std::string& channel, std::vector<uint64_t>& serials,
                             Failure& failure) {
  return list_serials(site_paths(site, channel).history, ".sig", serials, failure);
}

bool read_history(SiteReader& site, const std::string& channel, uint64_t serial, PublishedRelease& release,
                  Failure& failure) {
  const std::string name = history_manifest_name(channel, serial);
  const Search manifest = site.read_file(name, largest_manifest_bytes, release.manifest_bytes, failure);
  if (manifest == Search::absent) return fail(ExitCode::failed, site.name_of(name) + ": is missing", failure);
  if (manifest == Search::failed) return false;
  if (!check_as_launcher(release.manifest_bytes, channel, release.manifest, failure)) {
    failure.text = site.name_of(name) + ": " + failure.text;
    return false;
  }
  if (std::cmp_not_equal(release.manifest.serial, serial)) {
    return fail(ExitCode::failed,
                site.name_of(name) + ": holds serial " + std::to_string(release.manifest.serial) +
                    "; put back the file that was there",
                failure);
  }
  const Search signature =
      site.read_file(history_signature_name(channel, serial), largest_signature_bytes, release.signature, failure);
  if (signature == Search::absent) release.signature.clear();
  return signature != Search::failed;
}

std::string history_manifest_name(const std::string& channel, uint64_t serial) {
  return history_stem(channel, serial) + ".json";
}

std::string history_signature_name(const std::string& channel, uint64_t serial) {
  return history_stem(channel, serial) + ".sig";
}

}  // namespace kvx::publish
