// A file held open, as another program may hold it: until the lock ends, whoever opens, replaces or deletes the file
// meets its share mode. Any thread may end it, for example a TestClock hook.
#pragma once

#include <cstdint>
#include <string>

#include "foundations/system_handles.h"

namespace kvx::test {

class FileLock {
 public:
  // Opens an existing file for reading, as soon as nobody has it open in a way that excludes that, and fails the test
  // when it cannot. `share_mode` is FILE_SHARE_ flags; 0 shares nothing.
  explicit FileLock(const std::wstring& path, uint32_t share_mode = 0);

  void release() { file_.reset(); }

 private:
  FileHandle file_;
};

}  // namespace kvx::test
