#include "tools/kvxpublish/cli/progress.h"

#include <gtest/gtest.h>
#include <string>

#include "tests/support/test_clock.h"
#include "tests/tools/kvxpublish/support/captured_console.h"

namespace kvx::test {
namespace {

constexpr uint64_t megabyte = 1048576;

class ProgressTest : public testing::Test {
 protected:
  void wait_and_advance(publish::Progress& progress, uint32_t milliseconds, uint64_t bytes) {
    now_ += milliseconds;
    clock_.set_tick_count_ms(now_);
    progress.advance(bytes);
  }

  TestClock clock_;
  uint32_t now_ = 0;
  CapturedConsole console_;
};

TEST_F(ProgressTest, IsOneLineOnATerminalThatIsGoneAtTheEnd) {
  console_.terminal = true;
  clock_.set_tick_count_ms(0);
  {
    publish::Progress progress(console_, "packing", 100 * megabyte);
    wait_and_advance(progress, 99, megabyte);
    EXPECT_EQ(console_.messages, "");  // drawn ten times a second at most
    wait_and_advance(progress, 1, 24 * megabyte);
    EXPECT_EQ(console_.messages, "\rpacking [#######.......................] 25 % of 100.0 MB");
    console_.messages.clear();
    wait_and_advance(progress, 1900, 25 * megabyte);
    EXPECT_EQ(console_.messages, "\rpacking [###############...............] 50 % of 100.0 MB, about 2 s");
    console_.messages.clear();
    wait_and_advance(progress, 1000, 50 * megabyte);
    EXPECT_EQ(console_.messages, "\rpacking [##############################] 100 % of 100.0 MB          ");
    console_.messages.clear();
  }
  EXPECT_EQ(console_.messages, '\r' + std::string(58, ' ') + '\r');
}

TEST_F(ProgressTest, FitsANarrowTerminal) {
  console_.terminal = true;
  console_.width = 20;
  clock_.set_tick_count_ms(0);
  publish::Progress progress(console_, "packing", 100);
  wait_and_advance(progress, 100, 50);
  EXPECT_EQ(console_.messages, "\rpacking [##########");
}

TEST_F(ProgressTest, IsAPlainLineForEachTenthElsewhere) {
  clock_.set_tick_count_ms(0);
  publish::Progress progress(console_, "packing", 100 * megabyte);
  for (int i = 0; i < 100; ++i) wait_and_advance(progress, 600, megabyte);
  std::string lines;
  for (const char* tenth : {"10", "20", "30", "40", "50", "60", "70", "80", "90"}) {
    lines += std::string("packing: ") + tenth + " % of 100.0 MB\n";
  }
  EXPECT_EQ(console_.messages, lines);
}

TEST_F(ProgressTest, IsSilentElsewhereWhenItIsOverInAMoment) {
  clock_.set_tick_count_ms(0);
  publish::Progress progress(console_, "packing", 100);
  for (int i = 0; i < 100; ++i) wait_and_advance(progress, 5, 1);
  EXPECT_EQ(console_.messages, "");
}

TEST_F(ProgressTest, NeverShowsMoreThanTheWhole) {
  console_.terminal = true;
  clock_.set_tick_count_ms(0);
  publish::Progress progress(console_, "packing", 100);
  wait_and_advance(progress, 100, 250);
  EXPECT_EQ(console_.messages, "\rpacking [##############################] 100 % of 100 bytes");
}

}  // namespace
}  // namespace kvx::test
