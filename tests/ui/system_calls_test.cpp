// What the window asks of the system, and a message that the system does not take. It takes the place of some of the
// system's functions in this program, so it is a program of its own.
#include <windows.h>

#include <chrono>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "tests/support/replaced_function.h"
#include "tests/support/test_clock.h"
#include "ui/prompts.h"
#include "ui/window.h"

namespace kvx::test {
namespace {

constexpr UINT message_worker_done = WM_APP + 2;

struct Box {
  HWND owner;
  UINT style;
};

struct System {
  bool message_queue_is_full = false;
  std::vector<Box> boxes;
};

System fake;

BOOL WINAPI post_message(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  static const auto system_post = system_function<decltype(&PostMessageW)>("PostMessageW", L"user32.dll");
  if (!fake.message_queue_is_full || message != message_worker_done) {
    return system_post(window, message, wparam, lparam);
  }
  SetLastError(ERROR_NOT_ENOUGH_QUOTA);
  return FALSE;
}

int WINAPI message_box(HWND owner, LPCWSTR /*text*/, LPCWSTR /*caption*/, UINT style) {
  fake.boxes.push_back({owner, style});
  return IDOK;
}

}  // namespace
}  // namespace kvx::test

KVX_REPLACE(PostMessageW, kvx::test::post_message)
KVX_REPLACE(MessageBoxW, kvx::test::message_box)

namespace kvx::test {
namespace {

// Ends the message loop of the thread that made it where nothing else does in time.
class LoopLimit {
 public:
  LoopLimit()
      : watcher_([thread = GetCurrentThreadId(), over = over_.get_future()] {
          if (over.wait_for(std::chrono::seconds(60)) == std::future_status::timeout) {
            ADD_FAILURE() << "the window did not end";
            PostThreadMessageW(thread, WM_QUIT, 0, 0);
          }
        }) {}
  LoopLimit(const LoopLimit&) = delete;
  LoopLimit& operator=(const LoopLimit&) = delete;
  ~LoopLimit() {
    over_.set_value();
    watcher_.join();
  }

 private:
  std::promise<void> over_;
  std::thread watcher_;
};

class WindowCalls : public testing::Test {
 protected:
  WindowCalls() { fake = {}; }
  ~WindowCalls() override { fake = {}; }

  static int32_t run(Window::Behaviour behaviour, const Window::Work& work) {
    int32_t result = -1000;
    {
      Window window;
      EXPECT_TRUE(window.create(GetModuleHandleW(nullptr), behaviour));
      const LoopLimit limit;
      result = window.run(work);
    }
    // A loop that did not end by itself leaves a message to end the next one.
    for (MSG left; PeekMessageW(&left, nullptr, 0, 0, PM_REMOVE) != 0;) continue;
    return result;
  }
};

TEST_F(WindowCalls, AWorkerWhoseLastMessageIsLostEndsTheWindowAllTheSame) {
  fake.message_queue_is_full = true;
  for (const int32_t result : {42, 0, 99}) {
    ASSERT_EQ(run({.hidden = true}, [result](Ui&) { return result; }), result);
  }
}

TEST_F(WindowCalls, OnlyAPromptOfAHiddenWindowComesToTheForegroundByItself) {
  for (const bool hidden : {false, true}) {
    for (const uint32_t style : {style_error, style_information, style_question, style_retry, style_confirm}) {
      fake.boxes.clear();
      EXPECT_EQ(run({.hidden = hidden}, [style](Ui& ui) { return static_cast<int32_t>(ui.message_box(L"?", style)); }),
                IDOK);
      ASSERT_EQ(fake.boxes.size(), 1U);
      EXPECT_EQ(fake.boxes[0].style, hidden ? style | MB_SETFOREGROUND : style);
      EXPECT_EQ(fake.boxes[0].owner == nullptr, hidden);
    }
  }
}

}  // namespace
}  // namespace kvx::test
