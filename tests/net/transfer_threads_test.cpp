// It decides how many threads the system gives, in this program's place of the runtime's function, so it is a program
// of its own.
#include "net/transfer_threads.h"

#include <windows.h>
#include <process.h>
#include <winhttp.h>

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <mutex>
#include <set>
#include <string>

#include "net/stoppable_fetch.h"
#include "net/transfer.h"
#include "tests/support/replaced_function.h"
#include "tests/support/scripted_server.h"

namespace kvx::test {
namespace {

size_t threads_left = std::numeric_limits<size_t>::max();

uintptr_t start_if_any_is_left(void* security, unsigned stack, unsigned(__stdcall* body)(void*), void* argument,
                               unsigned flags, unsigned* id) {
  static const auto system_start = system_function<decltype(&_beginthreadex)>("_beginthreadex", L"msvcrt.dll");
  if (threads_left == 0) return 0;
  --threads_left;
  return system_start(security, stack, body, argument, flags, id);
}

std::atomic<size_t> waits_to_fail{0};

DWORD WINAPI wait_or_fail(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
  static const auto system_wait = system_function<decltype(&WaitForMultipleObjects)>("WaitForMultipleObjects");
  if (waits_to_fail == 0) return system_wait(count, handles, all, milliseconds);
  --waits_to_fail;
  return WAIT_FAILED;
}

std::atomic<size_t> reads_begun{0};

}  // namespace
}  // namespace kvx::test

KVX_REPLACE(_beginthreadex, kvx::test::start_if_any_is_left)
KVX_REPLACE(WaitForMultipleObjects, kvx::test::wait_or_fail)

// With C linkage this is the very function that the program calls.
extern "C" WINBOOL WINAPI WinHttpQueryDataAvailable(HINTERNET request, LPDWORD available) {
  static const auto system_query =
      kvx::test::system_function<decltype(&WinHttpQueryDataAvailable)>("WinHttpQueryDataAvailable", L"winhttp.dll");
  ++kvx::test::reads_begun;
  return system_query(request, available);
}

namespace kvx::test {
namespace {

class TransferThreadsTest : public testing::Test {
 protected:
  TransferThreadsTest() {
    std::string error;
    EXPECT_TRUE(session_.open(L"KVXLauncher/1.0.0", error)) << error;
  }
  ~TransferThreadsTest() override { threads_left = std::numeric_limits<size_t>::max(); }

  // The threads that ran, the calling one as 0.
  std::multiset<DWORD> run_on(size_t count) {
    std::mutex lock;
    std::multiset<DWORD> ran;
    const DWORD caller = GetCurrentThreadId();
    EXPECT_TRUE(threads_.run(count, [&] {
      const std::scoped_lock guard(lock);
      ran.insert(GetCurrentThreadId() == caller ? 0 : 1);
    }));
    return ran;
  }

  int32_t fetch(std::string& body) { return fetch_or_stop(threads_, server_.base_url(), body, 100, error_); }

  ScriptedServer server_;
  HttpSession session_;
  std::atomic<bool> cancel_requested_{false};
  const StopSignal stop_{cancel_requested_};
  std::string error_;
  TransferThreads threads_{session_, stop_};
};

TEST_F(TransferThreadsTest, RunTheBodyOnAsManyThreadsAsTheSystemGives) {
  using testing::ElementsAre;
  EXPECT_THAT(run_on(3), ElementsAre(1, 1, 1));
  threads_left = 2;
  EXPECT_THAT(run_on(3), ElementsAre(1, 1));
  threads_left = 1;
  EXPECT_THAT(run_on(3), ElementsAre(1));
  threads_left = 0;
  EXPECT_THAT(run_on(3), ElementsAre(0));
  EXPECT_FALSE(threads_.has_left_behind());
}

TEST_F(TransferThreadsTest, DoNotStartAfterAStop) {
  cancel_requested_ = true;
  bool ran = false;
  EXPECT_FALSE(threads_.run(1, [&] { ran = true; }));
  EXPECT_FALSE(ran);
  EXPECT_FALSE(threads_.has_left_behind());
}

TEST_F(TransferThreadsTest, LetTheCallerDoSomethingWhileItWaits) {
  std::atomic<size_t> calls{0};
  const DWORD caller = GetCurrentThreadId();
  const auto until_called_twice = [&] {
    for (const uint64_t end = GetTickCount64() + 20000; calls < 2 && GetTickCount64() < end;) Sleep(1);
  };
  EXPECT_TRUE(threads_.run(2, until_called_twice, [&] {
    EXPECT_EQ(GetCurrentThreadId(), caller);
    ++calls;
  }));
  EXPECT_GE(calls, 2U);
}

TEST_F(TransferThreadsTest, LeaveAFetchThatWaitsForTheNetworkBehind) {
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\nConnection: close\r\n\r\n";
  struct Case {
    std::string before;  // the server becomes silent
    size_t reads;        // until the one that waits
  };
  for (const auto& [before, reads] : {Case{"", 0}, {head.substr(0, 20), 0}, {head, 1}, {head + "bo", 2}}) {
    SCOPED_TRACE(before);
    reads_begun = 0;
    TransferThreads threads(session_, stop_);
    const Gate gate;
    server_.script("", {ScriptedResponse(before).wait_for(gate).then((head + "body").substr(before.size()))});
    cancel_requested_ = false;
    std::thread user([&, reads = reads] {
      EXPECT_TRUE(gate.wait_until_reached());
      for (const uint64_t end = GetTickCount64() + 20000; reads_begun < reads && GetTickCount64() < end;) Sleep(1);
      cancel_requested_ = true;
    });
    std::string body = "as before";
    EXPECT_EQ(fetch_or_stop(threads, server_.base_url(), body, 100, error_), transport_failure);
    EXPECT_EQ(error_, "cancelled");
    EXPECT_EQ(body, "");
    EXPECT_TRUE(threads.has_left_behind());
    user.join();
    gate.open();
  }
}

TEST_F(TransferThreadsTest, LeaveNoFetchBehindThatStillReceivesBytes) {
  constexpr DWORD between_bytes_ms = 10;
  constexpr size_t slow_bytes = 500;
  ScriptedResponse slow("HTTP/1.1 200 OK\r\nContent-Length: 500\r\nConnection: close\r\n\r\nx");
  slow.call([this] { cancel_requested_ = true; });
  for (size_t i = 1; i < slow_bytes; ++i) slow.then("x").call([] { Sleep(between_bytes_ms); });
  server_.script("", {slow});
  std::string body;
  EXPECT_EQ(fetch_or_stop(threads_, server_.base_url(), body, slow_bytes, error_), transport_failure);
  EXPECT_EQ(error_, "cancelled");
  EXPECT_EQ(body, "");
  EXPECT_FALSE(threads_.has_left_behind());
}

TEST_F(TransferThreadsTest, WaitForAThreadThatIsNotInTheNetwork) {
  constexpr DWORD longer_than_a_stuck_transfer_is_waited_for_ms = 1500;
  std::atomic<bool> finished = false;
  EXPECT_TRUE(threads_.run(2, [&] {
    cancel_requested_ = true;
    Sleep(longer_than_a_stuck_transfer_is_waited_for_ms);
    finished = true;
  }));
  EXPECT_TRUE(finished);
}

TEST_F(TransferThreadsTest, TakeAFailedWaitForNoEnd) {
  waits_to_fail = 2;
  std::atomic<size_t> running{2};
  EXPECT_TRUE(threads_.run(2, [&running] {
    for (const uint64_t end = GetTickCount64() + 20000; waits_to_fail > 0 && GetTickCount64() < end;) Sleep(1);
    --running;
  }));
  EXPECT_EQ(running, 0U);
}

TEST_F(TransferThreadsTest, GiveWhatTheFetchGives) {
  server_.script("", {answer(200, "body"), answer(503, "no"), answer(200, std::string(101, 'x'))});
  std::string body;
  error_ = "untouched";
  EXPECT_EQ(fetch(body), 200);
  EXPECT_EQ(body, "body");
  EXPECT_EQ(fetch(body), 503);
  EXPECT_EQ(body, "");
  EXPECT_EQ(error_, "untouched");
  EXPECT_EQ(fetch(body), transport_failure);
  EXPECT_EQ(error_, "response is larger than expected");
  EXPECT_EQ(body, "");
}

}  // namespace
}  // namespace kvx::test
