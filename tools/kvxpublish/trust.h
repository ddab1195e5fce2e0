// Whose signatures count, and reading a release only if it bears one of theirs.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/command.h"
#include "tools/kvxpublish/public_keys.h"
#include "tools/kvxpublish/site_reader.h"

namespace kvx::publish {

// --public-keys, for commands that check signatures.
void add_public_keys_option(CommandOptions command, std::string& value);

// The same option for the next step, with a blank before it; nothing when it was not given.
[[nodiscard]] std::string public_keys_argument(const std::string& option);

// The keys in the file that the option names, or those of this build when it is empty.
[[nodiscard]] bool load_trusted_keys(const std::string& option, std::vector<NamedKey>& keys, Failure& failure);

// Whose signature the release bears. An unsigned release, or a signature of nobody's among `keys`, is a failure with
// code `key`; `signature_name` names the signature file in it.
[[nodiscard]] bool find_signer(const PublishedRelease& release, const std::string& signature_name,
                               const std::vector<NamedKey>& keys, NamedKey& signer, Failure& failure);

// What launchers that trust `keys` take from the site, or `absent` when it has no release on the channel. Nothing of
// the manifest is read before its signature is checked. A server may be replacing the release just then, so that a
// signature that does not match is fetched once more.
[[nodiscard]] Search find_trusted_release(SiteReader& site, const std::string& channel,
                                          const std::vector<NamedKey>& keys, PublishedRelease& release,
                                          NamedKey& signer, Failure& failure);

// The same, but that the site has no release on the channel is a failure as well.
[[nodiscard]] bool read_trusted_release(SiteReader& site, const std::string& channel, const std::vector<NamedKey>& keys,
                                        PublishedRelease& release, NamedKey& signer, Failure& failure);

}  // namespace kvx::publish
