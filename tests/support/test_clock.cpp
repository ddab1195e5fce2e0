#include "tests/support/test_clock.h"

#include <mutex>
#include <numeric>
#include <thread>
#include <utility>

#include "foundations/clock.h"

namespace kvx {
namespace {

struct ClockState {
  std::mutex lock;
  uint32_t ticks = 0;
  std::vector<uint32_t> sleeps;
  std::function<void(uint32_t)> hook;
  std::function<void()> look_hook;
};

ClockState& clock_state() {
  static ClockState state;
  return state;
}

uint32_t sum(const std::vector<uint32_t>& sleeps) { return std::accumulate(sleeps.begin(), sleeps.end(), 0U); }

}  // namespace

uint32_t tick_count_ms() {
  ClockState& state = clock_state();
  std::function<void()> hook;
  {
    const std::scoped_lock guard(state.lock);
    hook = state.look_hook;
  }
  if (hook) hook();
  const std::scoped_lock guard(state.lock);
  return state.ticks;
}

void sleep_ms(uint32_t milliseconds) {
  ClockState& state = clock_state();
  std::function<void(uint32_t)> hook;
  uint32_t slept = 0;
  {
    const std::scoped_lock guard(state.lock);
    hook = state.hook;
    slept = sum(state.sleeps);
  }
  if (hook) hook(slept);
  {
    const std::scoped_lock guard(state.lock);
    state.sleeps.push_back(milliseconds);
    state.ticks += milliseconds;
  }
  std::this_thread::yield();  // other threads get their turn, as during a real sleep
}

namespace test {
namespace {

void reset() {
  ClockState& state = clock_state();
  const std::scoped_lock guard(state.lock);
  state.ticks = 0;
  state.sleeps.clear();
  state.hook = nullptr;
  state.look_hook = nullptr;
}

}  // namespace

TestClock::TestClock() { reset(); }

TestClock::~TestClock() { reset(); }

std::vector<uint32_t> TestClock::sleeps() const {
  ClockState& state = clock_state();
  const std::scoped_lock guard(state.lock);
  return state.sleeps;
}

uint32_t TestClock::total_slept_ms() const { return sum(sleeps()); }

void TestClock::on_sleep(std::function<void(uint32_t)> hook) {
  ClockState& state = clock_state();
  const std::scoped_lock guard(state.lock);
  state.hook = std::move(hook);
}

void TestClock::on_look(std::function<void()> hook) {
  ClockState& state = clock_state();
  const std::scoped_lock guard(state.lock);
  state.look_hook = std::move(hook);
}

void TestClock::set_tick_count_ms(uint32_t ticks) {
  ClockState& state = clock_state();
  const std::scoped_lock guard(state.lock);
  state.ticks = ticks;
}

}  // namespace test
}  // namespace kvx
