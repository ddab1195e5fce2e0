#include "net/receive_buffer.h"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <string>
#include <thread>
#include <vector>

namespace kvx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr size_t enough_bytes = 262144;
constexpr uint64_t large_transfer = uint64_t{1} << 30;

class ReceiveBufferTest : public testing::Test {
 protected:
  // What a thread does that sees to waiting bytes.
  void watch() { buffer_.pass_on_waiting(); }

  // The network brings so many bytes, each of which tells its position.
  bool receive(size_t count) {
    const ReceiveBuffer::Space space = buffer_.next_space();
    EXPECT_LE(count, space.count);
    for (size_t i = 0; i < count; ++i) space.bytes[i] = static_cast<uint8_t>((received_ + i) * 31 >> 3);
    received_ += count;
    return buffer_.add(count);
  }

  void expect_passed_on(uint64_t count) const {
    ASSERT_EQ(passed_on_.size(), count);
    for (size_t i = 0; i < passed_on_.size(); ++i) ASSERT_EQ(passed_on_[i], static_cast<uint8_t>(i * 31 >> 3)) << i;
  }

  ReceiveBuffer buffer_;
  uint64_t received_ = 0;
  std::vector<size_t> chunks_;
  std::vector<uint8_t> passed_on_;
  size_t refused_chunk_ = 0;  // the first is 1
  const TransferSink sink_ = [this](const uint8_t* bytes, size_t count) {
    chunks_.push_back(count);
    if (chunks_.size() == refused_chunk_) return false;
    passed_on_.insert(passed_on_.end(), bytes, bytes + count);
    return true;
  };
};

TEST_F(ReceiveBufferTest, PassesEverythingOnAtOnceWhenNobodyWatches) {
  buffer_.open(sink_, large_transfer);
  EXPECT_TRUE(receive(8192));
  EXPECT_TRUE(receive(1));
  EXPECT_TRUE(receive(300000));
  EXPECT_TRUE(buffer_.close());
  EXPECT_THAT(chunks_, ElementsAre(8192U, 1U, 300000U));
  expect_passed_on(308193);
}

TEST_F(ReceiveBufferTest, GathersWhatComesFast) {
  watch();
  buffer_.open(sink_, large_transfer);
  for (int i = 0; i < 31; ++i) EXPECT_TRUE(receive(8192));
  EXPECT_THAT(chunks_, IsEmpty());
  EXPECT_TRUE(receive(8192));
  EXPECT_THAT(chunks_, ElementsAre(enough_bytes));
  EXPECT_TRUE(receive(500000));
  EXPECT_THAT(chunks_, ElementsAre(enough_bytes, 500000U));
  EXPECT_TRUE(receive(5));
  EXPECT_TRUE(buffer_.close());
  EXPECT_THAT(chunks_, ElementsAre(enough_bytes, 500000U, 5U));
  expect_passed_on(enough_bytes + 500005);
}

TEST_F(ReceiveBufferTest, PassesOnWhatWaits) {
  watch();
  buffer_.open(sink_, large_transfer);
  EXPECT_TRUE(receive(100));
  EXPECT_TRUE(receive(20));
  buffer_.pass_on_waiting();
  EXPECT_THAT(chunks_, ElementsAre(120U));
  buffer_.pass_on_waiting();
  EXPECT_TRUE(receive(7));
  EXPECT_TRUE(buffer_.close());
  EXPECT_THAT(chunks_, ElementsAre(120U, 7U));
  expect_passed_on(127);
}

TEST_F(ReceiveBufferTest, PassesNothingOnBetweenTransfers) {
  watch();
  buffer_.open(sink_, 100);
  EXPECT_TRUE(receive(100));
  EXPECT_TRUE(buffer_.close());
  buffer_.pass_on_waiting();
  EXPECT_THAT(chunks_, ElementsAre(100U));
  buffer_.open(sink_, large_transfer);
  buffer_.pass_on_waiting();
  EXPECT_TRUE(receive(50));
  EXPECT_TRUE(buffer_.close());
  EXPECT_THAT(chunks_, ElementsAre(100U, 50U));
  expect_passed_on(150);
}

TEST_F(ReceiveBufferTest, AsksTheSinkNoMoreOnceItHasRefused) {
  watch();
  refused_chunk_ = 2;
  buffer_.open(sink_, large_transfer);
  EXPECT_TRUE(receive(enough_bytes));
  EXPECT_TRUE(receive(10));
  buffer_.pass_on_waiting();
  EXPECT_FALSE(receive(10));
  EXPECT_FALSE(receive(enough_bytes));
  buffer_.pass_on_waiting();
  EXPECT_FALSE(buffer_.close());
  EXPECT_THAT(chunks_, ElementsAre(enough_bytes, 10U));
  refused_chunk_ = 0;
  buffer_.open(sink_, large_transfer);  // the next transfer is another matter
  EXPECT_TRUE(receive(10));
  EXPECT_TRUE(buffer_.close());
}

TEST_F(ReceiveBufferTest, IsNoLargerThanItsTransferNeeds) {
  const auto space_for = [this](uint64_t expected_bytes) {
    ReceiveBuffer buffer;
    buffer.open(sink_, expected_bytes);
    const size_t count = buffer.next_space().count;
    EXPECT_TRUE(buffer.close());
    return count;
  };
  EXPECT_EQ(space_for(1), 4097U);
  EXPECT_EQ(space_for(4096), 8192U);
  EXPECT_EQ(space_for(1000000), 1004096U);
  EXPECT_EQ(space_for(large_transfer), 1048576U);
  EXPECT_EQ(space_for(UINT64_MAX), 1048576U);
}

TEST_F(ReceiveBufferTest, AlwaysHasSpace) {
  watch();
  buffer_.open(sink_, 8192);
  for (int i = 0; i < 100; ++i) {
    const ReceiveBuffer::Space space = buffer_.next_space();
    ASSERT_GE(space.count, 4096U);
    ASSERT_TRUE(receive(std::min(space.count, size_t{3000})));
  }
  EXPECT_TRUE(buffer_.close());
  expect_passed_on(received_);
}

TEST_F(ReceiveBufferTest, KeepsTheOrderWhileAnotherThreadPassesOn) {
  std::atomic<bool> done{false};
  buffer_.open(sink_, large_transfer);
  {
    std::jthread other([&] {
      while (!done) buffer_.pass_on_waiting();
    });
    size_t count = 1;
    while (received_ < 20000000) {
      count = count * 7 % 9973;
      EXPECT_TRUE(receive(count));
    }
    done = true;
  }
  EXPECT_TRUE(buffer_.close());
  expect_passed_on(received_);
}

}  // namespace
}  // namespace kvx
