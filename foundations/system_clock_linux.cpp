#include <chrono>
#include <thread>

#include "foundations/clock.h"

namespace kvx {

uint32_t tick_count_ms() {
  const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count());
}

void sleep_ms(uint32_t milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

}  // namespace kvx
