// Lets one launcher work on an install folder at a time. The lock is an open file, not the file's existence: it ends
// with the handle or the process, and the file stays. For the worker thread.
#pragma once

#include <cstdint>
#include <string>

#include "foundations/system_handles.h"

namespace kvx {

class InstanceLock {
 public:
  enum class Result : uint8_t {
    acquired,
    held_by_another,  // after trying for about 2 seconds
    cannot_be_created,
  };

  // On success the file holds this process's id.
  [[nodiscard]] Result acquire(const std::wstring& path);
  void release() { handle_.reset(); }

 private:
  FileHandle handle_;
};

}  // namespace kvx
