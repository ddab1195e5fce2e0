#include "ui/progress_text.h"

#include "foundations/display_format.h"
#include "foundations/text.h"

namespace kvx {
namespace {

constexpr uint32_t oldest_sample_ms = 6001;
constexpr size_t fewest_samples = 2;
constexpr double shortest_span_seconds = 0.5;
constexpr double slowest_shown_rate = 1.0;
constexpr wchar_t gap[] = L"   -   ";

std::wstring transfer_detail(uint64_t done, uint64_t total, double rate) {
  std::wstring line = format_size(done) + L" of " + format_size(total);
  if (rate <= slowest_shown_rate) return line;
  line += gap + format_size(static_cast<uint64_t>(rate)) + L"/s";
  const std::wstring time_left = format_duration(static_cast<double>(total - done) / rate);
  if (!time_left.empty()) line += gap + time_left + L" left";
  return line;
}

}  // namespace

void TransferRate::add_sample(uint32_t tick_ms, uint64_t bytes_done) {
  samples_.push_back({tick_ms, bytes_done});
  while (samples_.size() > fewest_samples && tick_ms - samples_.front().tick_ms >= oldest_sample_ms) {
    samples_.pop_front();
  }
}

double TransferRate::bytes_per_second() const {
  if (samples_.size() < fewest_samples) return 0;
  const Sample& oldest = samples_.front();
  const Sample& newest = samples_.back();
  const double span_seconds = static_cast<double>(newest.tick_ms - oldest.tick_ms) / 1000;
  if (span_seconds <= shortest_span_seconds || newest.bytes_done < oldest.bytes_done) return 0;
  return static_cast<double>(newest.bytes_done - oldest.bytes_done) / span_seconds;
}

int progress_position(const ProgressCounters& progress) {
  if (progress.total == 0) return 0;
  return static_cast<int>(static_cast<double>(progress.done) * progress_bar_range /
                          static_cast<double>(progress.total));
}

std::wstring progress_detail(const ProgressCounters& progress, const std::wstring& given, double rate) {
  switch (progress.mode) {
    case ProgressMode::checking:
      return L"Checked " + format_size(progress.done) + L" of " + format_size(progress.total);
    case ProgressMode::transfer: return transfer_detail(progress.done, progress.total, rate);
    case ProgressMode::files:
      return to_wide("File " + std::to_string(progress.done) + " of " + std::to_string(progress.total));
    case ProgressMode::busy:
    default: return given;
  }
}

}  // namespace kvx
