#include "tools/kvxpublish/release/signing.h"

#include <algorithm>

#include "tools/kvxpublish/cli/command.h"
#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/site/folder_site.h"
#include "tools/kvxpublish/site/site.h"

namespace kvx::publish {
namespace {

// Whether the public keys that count have it. A file that cannot be read has been refused before.
bool is_known(const std::string& key_identifier, const std::string& public_keys) {
  std::vector<NamedKey> keys;
  Failure ignored;
  return !load_trusted_keys(public_keys, keys, ignored) ||
         std::ranges::any_of(keys, [&](const NamedKey& key) { return identifier_text(key.key) == key_identifier; });
}

}  // namespace

bool read_release_to_sign(const std::string& site_folder, const std::string& channel, PublishedRelease& release,
                          Failure& failure) {
  const auto site = open_folder_site(site_folder);
  const Search search = read_release(*site, channel, release, failure);
  if (search != Search::absent) return search == Search::found;
  return fail(ExitCode::failed,
              site->name_of(manifest_name(channel)) + ": there is nothing to sign; pack a release of channel \"" +
                  channel + "\" first, or name another with --channel",
              failure);
}

bool place_signature(const std::string& site_folder, const PublishedRelease& release, const std::string& signature_file,
                     Failure& failure) {
  SiteWriter writer(site_paths(given_path(site_folder), release.manifest.channel));
  return writer.prepare(failure) && writer.publish(static_cast<uint64_t>(release.manifest.serial),
                                                   release.manifest_bytes, signature_file, failure);
}

void suggest_verify(const NextLook& look, const std::string& key_identifier, Report& report) {
  const bool known = is_known(key_identifier, look.public_keys);
  if (!known) {
    const std::string who =
        look.public_keys.empty() ? "the launcher of this build" : "a launcher with the keys in " + look.public_keys;
    report.note(who + " does not know key " + key_identifier + "; only launchers built with it take the release");
  }
  report.next_step("kvxpublish verify \"" + look.site + "\" --channel " + look.channel +
                   (known ? public_keys_argument(look.public_keys) : " --public-keys FILE"));
}

}  // namespace kvx::publish
