#include "tools/kvxpublish/platform/system.h"

#include <windows.h>

namespace kvx::publish {

uint64_t process_id() { return GetCurrentProcessId(); }

uint64_t file_time_now() {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

}  // namespace kvx::publish
