// What a site can do without, worked out before anything is deleted.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

struct PrunableFile {
  std::string name;   // below the site, with "/"
  uint64_t size = 0;  // bytes
};

struct PrunePlan {
  std::vector<std::string> channels;
  size_t kept_releases = 0;
  size_t kept_content = 0;
  std::vector<PrunableFile> history;       // manifests and signatures of releases that are not kept, or not whole
  std::vector<PrunableFile> content;       // that no kept release names
  std::vector<PrunableFile> temporaries;   // of programs that ended before they were done
  std::vector<std::string> empty_folders;  // below the site, which have only temporaries; deleted after them
};

// Keeps each channel's live release and the newest `keep` of its history, and all content that they name. A release of
// the history without a signature is kept only while it is live. `now` is in 100 ns units since 1601: temporary files
// older than a day are left-overs. So is every folder of waiting content, because the plan is carried out by whoever
// holds the site's lock. Any manifest that cannot be read, kept or not, is a failure.
[[nodiscard]] bool plan_prune(const fs::path& site, uint64_t keep, uint64_t now, PrunePlan& plan, Failure& failure);

}  // namespace kvx::publish
