// Signing what a site publishes.
#pragma once

#include <string>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/cli/report.h"
#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {

// What the site publishes on a channel and launchers would take if it were signed.
[[nodiscard]] bool read_release_to_sign(const std::string& site_folder, const std::string& channel,
                                        PublishedRelease& release, Failure& failure);

// Puts a signature file beside the published manifest, and into the history.
[[nodiscard]] bool place_signature(const std::string& site_folder, const PublishedRelease& release,
                                   const std::string& signature_file, Failure& failure);

// What the next step of a command needs to look at a release as launchers do.
struct NextLook {
  std::string site;
  std::string channel;
  std::string public_keys;  // the command's own --public-keys, empty for none
};

// After a release was signed: tells the person when launchers do not know the key, and names `verify` as the next step.
void suggest_verify(const NextLook& look, const std::string& key_identifier, Report& report);

}  // namespace kvx::publish
