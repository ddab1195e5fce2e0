// How byte counts and time estimates are shown. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace kvx {

// "1023 bytes", "2 KB", "5.0 MB", "1.00 GB": multiples of 1,024, rounded, never promoted to the next unit.
[[nodiscard]] std::wstring format_size(uint64_t bytes);

// "about 59 s", "about 2 min", "about 1 h 05 min"; empty for a negative time or one beyond 100 hours.
[[nodiscard]] std::wstring format_duration(double seconds);

}  // namespace kvx
