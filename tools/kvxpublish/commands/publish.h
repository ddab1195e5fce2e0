// `kvxpublish publish`: a release goes from the site where it was made to the folder that a server hands out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kvxpublish/cli/command.h"
#include "tools/kvxpublish/keys/public_keys.h"

namespace kvx::publish {

struct PublishRequest {
  std::string site;  // as on the command line
  std::string to;
  std::string channel;
  std::vector<NamedKey> keys;    // whose signatures count
  bool force = false;            // whatever serial is live
  bool replace_damaged = false;  // content at the target that has not its size
};

struct PublishSummary {
  std::string version;
  uint64_t serial = 0;
  NamedKey signer{};
  size_t copied_count = 0;
  uint64_t copied_bytes = 0;
  size_t present_count = 0;  // pieces of content that were there already
};

// On failure everything that is live is as it was, but for the last look at what was published.
[[nodiscard]] bool publish_release(const PublishRequest& request, Console& console, PublishSummary& summary,
                                   Failure& failure);

[[nodiscard]] RunCommand define_publish(CommandOptions command);

}  // namespace kvx::publish
