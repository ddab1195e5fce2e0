#include "tests/support/file_lock.h"

#include <gtest/gtest.h>

#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/support/window_driver.h"

namespace kvx::test {

// The program under test may have the file open itself for a moment.
FileLock::FileLock(const std::wstring& path, uint32_t share_mode) {
  uint32_t error = 0;
  const auto is_settled = [&] {
    file_.reset(CreateFileW(long_path(path).c_str(), GENERIC_READ, share_mode, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
    error = file_ ? 0 : GetLastError();
    return error != ERROR_SHARING_VIOLATION;
  };
  static_cast<void>(wait_until(is_settled));
  if (!file_) ADD_FAILURE() << "cannot hold " << to_utf8(path) << ": error " << error;
}

}  // namespace kvx::test
