#include "tools/kvxpublish/platform/system.h"

#include <unistd.h>

#include <chrono>

namespace kvx::publish {

uint64_t process_id() { return static_cast<uint64_t>(::getpid()); }

uint64_t file_time_now() {
  constexpr uint64_t units_from_1601_to_1970 = 116'444'736'000'000'000;
  using Units = std::chrono::duration<uint64_t, std::ratio<1, 10'000'000>>;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return units_from_1601_to_1970 + std::chrono::duration_cast<Units>(now).count();
}

}  // namespace kvx::publish
