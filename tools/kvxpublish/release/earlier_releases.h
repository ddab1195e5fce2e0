// What was published on a channel before the release that is being packed, and which serial follows from it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "manifest/manifest.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/keys/public_keys.h"

namespace kvx::publish {

struct EarlierReleases {
  std::optional<Manifest> previous;  // the release that the new one follows, wherever it was read
  bool previous_is_signed = false;
  std::string previous_name;                 // its manifest's path or URL
  std::optional<uint64_t> published_serial;  // what the site that is written to publishes now
  std::string published_bytes;               // its manifest
  std::string published_name;
  std::optional<uint64_t> kept_serial;  // the largest in the history of that site
  std::string kept_name;
};

// Where the release before is, and what is believed of it. Its serial and removals get a new signature, so it must bear
// one of the keys'.
struct PreviousSource {
  std::string site;             // a folder or a URL; empty for none
  bool trust_unsigned = false;  // a folder's release without any signature passes
};

[[nodiscard]] bool load_previous(const PreviousSource& previous, const std::string& channel,
                                 const std::vector<NamedKey>& keys, EarlierReleases& earlier, Failure& failure);

// What the folder `site` publishes and has published. A manifest that cannot be read counts as none if
// `serial_is_given`; otherwise the serial depends on it, and it is a failure.
[[nodiscard]] bool load_published(const std::string& site, const std::string& channel, bool serial_is_given,
                                  EarlierReleases& earlier, Failure& failure);

// The serial of the new release: the wanted one if launchers will take it, or the next. Launchers never go back to a
// smaller one than they have seen. The published serial itself passes; check_republished has the last word on it.
[[nodiscard]] bool settle_serial(const EarlierReleases& earlier, const std::optional<uint64_t>& wanted,
                                 uint64_t& serial, Failure& failure);

// Only the very same manifest may be published again under the published serial.
[[nodiscard]] bool check_republished(const EarlierReleases& earlier, uint64_t serial, const std::string& manifest,
                                     Failure& failure);

}  // namespace kvx::publish
