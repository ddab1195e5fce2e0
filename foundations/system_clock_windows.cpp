#include <windows.h>

#include "foundations/clock.h"

namespace kvx {

uint32_t tick_count_ms() { return GetTickCount(); }

void sleep_ms(uint32_t milliseconds) { Sleep(milliseconds); }

}  // namespace kvx
