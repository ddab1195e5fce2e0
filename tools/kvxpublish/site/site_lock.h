// Lets one command at a time change a site. The lock is the open file kvxpublish.lock in the site's folder, which goes
// with the handle or the process. Commands that only read need none. Under Wine only the programs of one user and one
// prefix see it.
#pragma once

#include <string>
#include <vector>

#include "foundations/system_handles.h"
#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

class SiteLock {
 public:
  SiteLock() = default;
  SiteLock(const SiteLock&) = delete;
  SiteLock& operator=(const SiteLock&) = delete;
  ~SiteLock();

  // Goes before the first look at what the site has, and lasts until everything is written. Fails when another holds
  // the lock for about 2 seconds. A folder that is missing is made, and taken away at the end if it is still empty.
  [[nodiscard]] bool acquire(const std::wstring& site, Failure& failure);

 private:
  FileHandle file_;
  std::vector<std::wstring> made_folders_;  // innermost first
};

}  // namespace kvx::publish
