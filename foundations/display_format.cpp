#include "foundations/display_format.h"

#include <cinttypes>
#include <cstdio>
#include <iterator>

#include "foundations/text.h"

namespace kvx {
namespace {

constexpr size_t text_buffer_chars = 64;

// Half a unit counts as a whole one; the value is never negative.
int rounded(double value) {
  return static_cast<int>(value + 0.5);  // NOLINT(bugprone-incorrect-roundings): for negative values only
}

}  // namespace

std::wstring format_size(uint64_t bytes) {
  constexpr uint64_t kb = 1ULL << 10;
  constexpr uint64_t mb = 1ULL << 20;
  constexpr uint64_t gb = 1ULL << 30;
  const auto count = static_cast<double>(bytes);
  char text[text_buffer_chars];  // narrow: wide printing would make the program 20 KB larger
  if (bytes >= gb) {
    std::snprintf(text, std::size(text), "%.2f GB", count * (1.0 / gb));
  } else if (bytes >= mb) {
    std::snprintf(text, std::size(text), "%.1f MB", count * (1.0 / mb));
  } else if (bytes >= kb) {
    std::snprintf(text, std::size(text), "%.0f KB", count * (1.0 / kb));
  } else {
    std::snprintf(text, std::size(text), "%" PRIu64 " bytes", bytes);
  }
  return to_wide(text);
}

std::wstring format_duration(double seconds) {
  constexpr double longest_shown_seconds = 360000;
  if (!(seconds >= 0) || seconds > longest_shown_seconds) return {};  // also refuses a NaN
  char text[text_buffer_chars];
  if (seconds < 60) {
    std::snprintf(text, std::size(text), "about %d s", rounded(seconds));
  } else if (seconds < 3600) {
    std::snprintf(text, std::size(text), "about %d min", rounded(seconds / 60));
  } else {
    int hours = static_cast<int>(seconds / 3600);
    int minutes = rounded((seconds - hours * 3600.0) / 60);
    if (minutes == 60) {
      ++hours;
      minutes = 0;
    }
    std::snprintf(text, std::size(text), "about %d h %02d min", hours, minutes);
  }
  return to_wide(text);
}

}  // namespace kvx
