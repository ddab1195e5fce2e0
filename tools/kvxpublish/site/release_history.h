// The releases that a site keeps of a channel: history/CHANNEL/SERIAL.json and .sig.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "manifest/manifest.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {

// The serials that the history has, ascending. A site without a history has none.
[[nodiscard]] bool list_history(const fs::path& site, const std::string& channel, std::vector<uint64_t>& serials,
                                Failure& failure);

// The serials that have a signature there, with or without the release.
[[nodiscard]] bool list_history_signatures(const fs::path& site, const std::string& channel,
                                           std::vector<uint64_t>& serials, Failure& failure);

// One release of the history, validated with the launcher's own rules; its signature, if it has one, is not checked.
[[nodiscard]] bool read_history(SiteReader& site, const std::string& channel, uint64_t serial,
                                PublishedRelease& release, Failure& failure);

// The names of its two files below the site, with "/".
[[nodiscard]] std::string history_manifest_name(const std::string& channel, uint64_t serial);
[[nodiscard]] std::string history_signature_name(const std::string& channel, uint64_t serial);

}  // namespace kvx::publish
