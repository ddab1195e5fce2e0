#include "tools/kvxpublish/site/site_lock.h"

#include "foundations/clock.h"
#include "foundations/error_text.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "tools/kvxpublish/platform/made_folders.h"

namespace kvx::publish {
namespace {

constexpr int most_attempts = 10;
constexpr uint32_t retry_pause_ms = 200;

// A file that is on its way out denies access for a moment.
bool may_be_held(uint32_t error) {
  return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_ACCESS_DENIED;
}

}  // namespace

SiteLock::~SiteLock() {
  file_.reset();
  remove_empty_folders(made_folders_);
}

bool SiteLock::acquire(const std::wstring& site, Failure& failure) {
  if (!make_folders(site, made_folders_, failure)) return false;
  const std::wstring path = join_path(site, L"kvxpublish.lock");
  for (int attempt = 1;; ++attempt) {
    file_.reset(CreateFileW(long_path(path).c_str(), GENERIC_WRITE | DELETE, 0, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (file_) return true;
    const uint32_t error = GetLastError();
    if (may_be_held(error) && attempt < most_attempts) {
      sleep_ms(retry_pause_ms);
      continue;
    }
    if (!may_be_held(error) || error == ERROR_ACCESS_DENIED) {
      return fail(ExitCode::failed, to_utf8(path) + ": cannot be made: " + error_text(error), failure);
    }
    return fail(ExitCode::failed,
                to_utf8(site) + ": another kvxpublish is working on this site; try again when it has ended", failure);
  }
}

}  // namespace kvx::publish
