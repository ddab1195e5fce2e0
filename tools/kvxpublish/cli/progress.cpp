#include "tools/kvxpublish/cli/progress.h"

#include <algorithm>

#include "foundations/clock.h"
#include "foundations/display_format.h"
#include "foundations/text.h"

namespace kvx::publish {
namespace {

constexpr uint32_t redraw_interval_ms = 100;
constexpr uint32_t line_interval_ms = 1000;
constexpr size_t bar_columns = 30;

std::string size_text(uint64_t bytes) { return to_utf8(format_size(bytes)); }

std::string bar(uint64_t percent) {
  const size_t filled = percent * bar_columns / 100;
  return '[' + std::string(filled, '#') + std::string(bar_columns - filled, '.') + ']';
}

}  // namespace

Progress::Progress(Console& console, std::string what, uint64_t total_bytes)
    : console_(console),
      what_(std::move(what)),
      total_(total_bytes),
      started_(tick_count_ms()),
      last_shown_(started_) {}

Progress::~Progress() {
  if (drawn_columns_ > 0) console_.write_message('\r' + std::string(drawn_columns_, ' ') + '\r');
}

void Progress::advance(uint64_t bytes) {
  const std::scoped_lock lock(mutex_);
  done_ += bytes;
  const uint32_t now = tick_count_ms();
  if (console_.is_terminal()) {
    draw_bar(now);
  } else {
    write_tenth(now);
  }
}

// A file that grows while it is read may bring more than was announced.
uint64_t Progress::percent() const {
  const uint64_t done = std::min(done_, total_);
  return total_ == 0 ? 100 : static_cast<uint64_t>(static_cast<double>(done) * 100 / static_cast<double>(total_));
}

std::string Progress::remaining(uint32_t now) const {
  const double seconds = static_cast<double>(now - started_) / 1000;
  if (seconds < 1 || done_ == 0 || done_ >= total_) return {};
  const double left = seconds * static_cast<double>(total_ - done_) / static_cast<double>(done_);
  const std::string duration = to_utf8(format_duration(left));
  return duration.empty() ? duration : ", " + duration;
}

void Progress::draw_bar(uint32_t now) {
  if (now - last_shown_ < redraw_interval_ms) return;
  last_shown_ = now;
  std::string line =
      what_ + ' ' + bar(percent()) + ' ' + std::to_string(percent()) + " % of " + size_text(total_) + remaining(now);
  // A line that reaches the last column would wrap, and could not be drawn again.
  line.resize(std::min(line.size(), console_.columns() - 1));
  const size_t columns = line.size();
  if (columns < drawn_columns_) line.append(drawn_columns_ - columns, ' ');
  drawn_columns_ = columns;
  console_.write_message('\r' + line);
}

void Progress::write_tenth(uint32_t now) {
  const uint64_t tenth = percent() / 10;
  if (tenth == last_tenth_ || tenth == 10 || now - last_shown_ < line_interval_ms) return;
  last_shown_ = now;
  last_tenth_ = tenth;
  console_.write_message(what_ + ": " + std::to_string(tenth * 10) + " % of " + size_text(total_) + '\n');
}

}  // namespace kvx::publish
