// Time as the program waits for it. The program links system_clock.cpp; tests may link a clock of their own in its
// place, so that a pause of seconds costs nothing there. Any thread.
#pragma once

#include <cstdint>

namespace kvx {

// Milliseconds since the system started, wrapping after about 49.7 days.
[[nodiscard]] uint32_t tick_count_ms();

void sleep_ms(uint32_t milliseconds);

}  // namespace kvx
