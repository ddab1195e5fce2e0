#include "tools/kvxpublish/site/site_lock.h"

#include "foundations/clock.h"
#include "tools/kvxpublish/platform/folders.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {
namespace {

constexpr int most_attempts = 10;
constexpr uint32_t retry_pause_ms = 200;

}  // namespace

SiteLock::~SiteLock() {
  file_.reset();
  remove_empty_folders(made_folders_);
}

bool SiteLock::acquire(const fs::path& site, Failure& failure) {
  if (!make_folders(site, made_folders_, failure)) return false;
  const fs::path path = site / "kvxpublish.lock";
  file_.emplace();
  for (int attempt = 1;; ++attempt) {
    bool is_held = false;
    std::string reason;
    if (file_->acquire(path, is_held, reason)) return true;
    if (attempt < most_attempts) {
      sleep_ms(retry_pause_ms);
      continue;
    }
    if (!is_held) return fail(ExitCode::failed, path_text(path) + ": cannot be made: " + reason, failure);
    return fail(ExitCode::failed,
                path_text(site) + ": another kvxpublish is working on this site; try again when it has ended", failure);
  }
}

}  // namespace kvx::publish
