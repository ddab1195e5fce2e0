#include "net/receive_buffer.h"

#include <algorithm>

namespace kvx {
namespace {

constexpr size_t gathered_bytes = 262144;
constexpr uint64_t largest_buffer_bytes = 1048576;
constexpr uint64_t spare_bytes = 4096;  // so that a server that sends too much is noticed

}  // namespace

void ReceiveBuffer::open(const TransferSink& sink, uint64_t expected_bytes) {
  const std::scoped_lock guard(lock_);
  const size_t wanted = std::min(expected_bytes, largest_buffer_bytes - spare_bytes) + spare_bytes;
  if (capacity_ < wanted) {
    bytes_.reset();
    bytes_ = std::make_unique_for_overwrite<uint8_t[]>(wanted);
    capacity_ = wanted;
  }
  sink_ = &sink;
  begin_ = end_ = 0;
  refused_ = false;
}

ReceiveBuffer::Space ReceiveBuffer::next_space() {
  const std::scoped_lock guard(lock_);
  if (begin_ == end_) begin_ = end_ = 0;
  return {bytes_.get() + end_, capacity_ - end_};
}

bool ReceiveBuffer::add(size_t count) {
  const std::scoped_lock guard(lock_);
  end_ += count;
  const bool is_due = !is_watched_ || end_ - begin_ >= gathered_bytes || capacity_ - end_ < spare_bytes;
  return is_due ? pass_on() : !refused_;
}

bool ReceiveBuffer::close() {
  const std::scoped_lock guard(lock_);
  const bool stored = pass_on();
  sink_ = nullptr;
  return stored;
}

void ReceiveBuffer::pass_on_waiting() {
  const std::scoped_lock guard(lock_);
  is_watched_ = true;
  if (sink_ != nullptr) static_cast<void>(pass_on());
}

bool ReceiveBuffer::pass_on() {
  if (begin_ != end_ && !refused_) refused_ = !(*sink_)(bytes_.get() + begin_, end_ - begin_);
  begin_ = end_;
  return !refused_;
}

}  // namespace kvx
