// Reading a release of a site only if it bears a signature that counts.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/keys/public_keys.h"
#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {

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
