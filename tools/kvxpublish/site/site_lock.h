// Lets one command at a time change a site, whoever on this machine runs it. The lock is the file kvxpublish.lock in
// the site's folder, which is free again when the process ends. Commands that only read need none.
#pragma once

#include <optional>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/files.h"

namespace kvx::publish {

class SiteLock {
 public:
  SiteLock() = default;
  SiteLock(const SiteLock&) = delete;
  SiteLock& operator=(const SiteLock&) = delete;
  ~SiteLock();

  // Goes before the first look at what the site has, and lasts until everything is written. Fails when another holds
  // the lock for about 2 seconds. A folder that is missing is made, and taken away at the end if it is still empty.
  [[nodiscard]] bool acquire(const fs::path& site, Failure& failure);

 private:
  std::optional<LockFile> file_;
  std::vector<fs::path> made_folders_;  // innermost first
};

}  // namespace kvx::publish
