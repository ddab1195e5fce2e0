// What the progress window shows for the worker's counters. No window here; one thread at a time.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "ui/ui.h"

namespace kvx {

// How fast `progress_done` grew over about the last 6 seconds.
class TransferRate {
 public:
  void clear() { samples_.clear(); }

  void add_sample(uint32_t tick_ms, uint64_t bytes_done);

  // Bytes per second; 0 until the samples span more than half a second, and while fewer bytes are done than before.
  [[nodiscard]] double bytes_per_second() const;

  [[nodiscard]] size_t sample_count() const { return samples_.size(); }

 private:
  struct Sample {
    uint32_t tick_ms;
    uint64_t bytes_done;
  };
  std::deque<Sample> samples_;
};

struct ProgressCounters {
  ProgressMode mode = ProgressMode::busy;
  uint64_t total = 0;
  uint64_t done = 0;  // at most total
};

// The progress bar's position.
constexpr int progress_bar_range = 10000;
[[nodiscard]] int progress_position(const ProgressCounters& progress);

// The detail line; `given` is the detail text of show_status, `rate` in bytes per second.
[[nodiscard]] std::wstring progress_detail(const ProgressCounters& progress, const std::wstring& given, double rate);

}  // namespace kvx
