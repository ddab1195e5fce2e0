// The clock of most test programs: it advances only when the program sleeps or a test says so, and remembers every
// sleep. It is one per process, as the real one is; a TestClock at the start of a test resets it. Any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace kvx::test {

class TestClock {
 public:
  TestClock();
  TestClock(const TestClock&) = delete;
  TestClock& operator=(const TestClock&) = delete;
  ~TestClock();

  // Milliseconds of every sleep since the start of the test, in order.
  [[nodiscard]] std::vector<uint32_t> sleeps() const;
  [[nodiscard]] uint32_t total_slept_ms() const;

  // Called on the sleeping thread before each sleep is counted, with the milliseconds slept so far.
  void on_sleep(std::function<void(uint32_t slept_ms)> hook);

  // Called on the looking thread before the program is told the time, which it may set.
  void on_look(std::function<void()> hook);

  void set_tick_count_ms(uint32_t ticks);
};

}  // namespace kvx::test
