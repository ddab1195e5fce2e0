#include "tests/support/file_lock.h"

#include <gtest/gtest.h>

#include "foundations/paths.h"
#include "foundations/text.h"

namespace kvx::test {

FileLock::FileLock(const std::wstring& path, uint32_t share_mode)
    : file_(CreateFileW(long_path(path).c_str(), GENERIC_READ, share_mode, nullptr, OPEN_EXISTING,
                        FILE_ATTRIBUTE_NORMAL, nullptr)) {
  if (!file_) ADD_FAILURE() << "cannot hold " << to_utf8(path) << ": error " << GetLastError();
}

}  // namespace kvx::test
