#include "foundations/stop_signal.h"

#include "foundations/clock.h"

namespace kvx {

bool StopSignal::wait_or_stop(uint32_t milliseconds) const {
  constexpr uint32_t poll_ms = 100;
  const uint32_t start = tick_count_ms();
  while (tick_count_ms() - start < milliseconds) {
    if (requested()) return false;
    sleep_ms(poll_ms);
  }
  return !requested();
}

}  // namespace kvx
