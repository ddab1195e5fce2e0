// How far a long step is, for the person who waits: on a terminal one line that is drawn again and again, elsewhere a
// few plain lines, one each tenth, and none at all for a step that is over in a moment.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "tools/kvxpublish/cli/console.h"

namespace kvx::publish {

// Nothing else may write to the console while one lives. `advance` may be called from any thread.
class Progress {
 public:
  // `what` says what is being done, for example "packing"; `total_bytes` is the whole of it.
  Progress(Console& console, std::string what, uint64_t total_bytes);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();  // leaves the terminal's line empty

  void advance(uint64_t bytes);

 private:
  void draw_bar(uint32_t now);
  void write_tenth(uint32_t now);
  [[nodiscard]] uint64_t percent() const;
  [[nodiscard]] std::string remaining(uint32_t now) const;

  Console& console_;
  const std::string what_;
  const uint64_t total_;
  const uint32_t started_;
  std::mutex mutex_;
  uint64_t done_ = 0;
  uint32_t last_shown_;
  uint64_t last_tenth_ = 0;
  size_t drawn_columns_ = 0;
};

}  // namespace kvx::publish
