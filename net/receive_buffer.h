// The bytes of a transfer on their way from the network to where they are stored. While they come fast they are
// gathered, so that the sink gets few large pieces. A thread that waits for more cannot store what it has: for that,
// another one calls pass_on_waiting every so often. Until its first call nothing is gathered; after that it is taken to
// go on for as long as the buffer serves transfers.
//
// Serves one transfer at a time, any number in turn.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace kvx {

// Stores a chunk; true when it did. The bytes are valid during the call only. Calls come from one thread at a time, but
// not always the same.
using TransferSink = std::function<bool(const uint8_t* bytes, size_t count)>;

class ReceiveBuffer {
 public:
  struct Space {
    uint8_t* bytes;
    size_t count;
  };

  // For the receiving thread. From open to close the sink, which must live as long, may be called. No more than
  // `expected_bytes` is allocated for them, and a little.
  void open(const TransferSink& sink, uint64_t expected_bytes);

  // Where the next bytes go; at least 4 KiB.
  [[nodiscard]] Space next_space();

  // Takes the first `count` bytes of that space over. False when the sink has refused a chunk, this one or an earlier.
  [[nodiscard]] bool add(size_t count);

  // Passes on what is left. False when the sink has refused a chunk.
  [[nodiscard]] bool close();

  // For the other thread: passes on what has come so far. Does nothing between transfers.
  void pass_on_waiting();

 private:
  [[nodiscard]] bool pass_on();

  std::mutex lock_;  // guards all below but the content of the free space
  const TransferSink* sink_ = nullptr;
  std::unique_ptr<uint8_t[]> bytes_;
  size_t capacity_ = 0;
  size_t begin_ = 0;  // of what is not passed on yet
  size_t end_ = 0;
  bool refused_ = false;
  bool is_watched_ = false;  // by a thread that calls pass_on_waiting
};

}  // namespace kvx
