#include "foundations/log.h"

#include <windows.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <map>
#include <regex>
#include <thread>

#include "foundations/files.h"
#include "foundations/paths.h"
#include "tests/support/file_lock.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_folder.h"

namespace kvx {
namespace {

using test::exists;
using test::read_text;
using test::write_text;
using testing::ElementsAre;
using testing::IsEmpty;

// Sees what the process sends to a debugger, which arrives as an exception first.
class DebuggerOutput {
 public:
  DebuggerOutput() : handler_(AddVectoredExceptionHandler(1, &on_exception)) { text().clear(); }
  DebuggerOutput(const DebuggerOutput&) = delete;
  DebuggerOutput& operator=(const DebuggerOutput&) = delete;
  ~DebuggerOutput() { RemoveVectoredExceptionHandler(handler_); }

  // The log sends one line at a time.
  static std::string& text() {
    static std::string sent;
    return sent;
  }

 private:
  static LONG CALLBACK on_exception(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode != DBG_PRINTEXCEPTION_C || record.NumberParameters < 2) return EXCEPTION_CONTINUE_SEARCH;
    text() += reinterpret_cast<const char*>(record.ExceptionInformation[1]);
    return EXCEPTION_CONTINUE_EXECUTION;
  }

  void* handler_;
};

class LogTest : public testing::Test {
 protected:
  ~LogTest() override { log::close(); }

  void run(const std::string& message) {
    log::open(path);
    log::write("%s", message.c_str());
    log::close();
  }

  [[nodiscard]] std::vector<std::string> messages_of(const std::wstring& name) const {
    return test::log_messages(read_text(folder / name));
  }

  test::TempFolder folder;
  std::wstring path = long_path(folder / L"launcher.log");
};

TEST_F(LogTest, StampsEachLineWithLocalTimeAndThread) {
  log::open(path);
  SYSTEMTIME before;
  GetLocalTime(&before);
  log::write("started %s (pid %lu)", "KVX.exe", 9920UL);
  const std::string line = read_text(path);  // readable while it is open
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(line, parts,
                               std::regex(R"((\d{4})-(\d\d)-(\d\d) (\d\d):(\d\d):(\d\d)\.\d{3} \[( *\d+)\] (.*)\r\n)")))
      << line;
  const auto seconds = [](int hour, int minute, int second) { return (hour * 60 + minute) * 60 + second; };
  const int elapsed = seconds(std::stoi(parts[4]), std::stoi(parts[5]), std::stoi(parts[6])) -
                      seconds(before.wHour, before.wMinute, before.wSecond);
  EXPECT_LE((elapsed + 86400) % 86400, 60);
  EXPECT_EQ(std::stoi(parts[1]) + 1, before.wYear + 1);
  char thread[16];
  std::snprintf(thread, sizeof(thread), "%5lu", GetCurrentThreadId());
  EXPECT_EQ(parts[7], thread);
  EXPECT_EQ(parts[8], "started KVX.exe (pid 9920)");
}

TEST_F(LogTest, KeepsTheBytesOfUtf8WithoutAMark) {
  run("\xE5\x90\x8D/\xC3\xA9");
  EXPECT_THAT(messages_of(L"launcher.log"), ElementsAre("\xE5\x90\x8D/\xC3\xA9"));
  EXPECT_EQ(read_text(path).substr(0, 2), "20");
}

TEST_F(LogTest, KeepsExactlyThePreviousRunsLog) {
  run("first");
  EXPECT_FALSE(exists(folder / L"launcher.prev.log"));
  run("second");
  EXPECT_THAT(messages_of(L"launcher.prev.log"), ElementsAre("first"));
  EXPECT_THAT(messages_of(L"launcher.log"), ElementsAre("second"));
  run("third");
  EXPECT_THAT(messages_of(L"launcher.prev.log"), ElementsAre("second"));
  EXPECT_THAT(messages_of(L"launcher.log"), ElementsAre("third"));
  EXPECT_EQ(list_folder(folder.path()).size(), 2U);
}

TEST_F(LogTest, NamesThePreviousLogByTheLastDotOfTheWholePath) {
  struct Case {
    const wchar_t* name;
    const wchar_t* previous;
  };
  for (const Case& c : {Case{L"plain\\log", L"plain\\log.prev.log"},
                        {L"a.b\\log", L"a.prev.log"},
                        {L"x.y.log", L"x.y.prev.log"},
                        {L"plain\\name.txt", L"plain\\name.prev.log"}}) {
    ASSERT_EQ(folder.path().find(L'.'), std::wstring::npos);
    write_text(folder / c.name, "old");
    log::open(long_path(folder / c.name));
    log::close();
    EXPECT_EQ(read_text(folder / c.previous), "old");
    EXPECT_EQ(read_text(folder / c.name), "");
  }
}

TEST_F(LogTest, OverwritesTheOldLogWhenItCannotBeKept) {
  write_text(path, "old");
  write_text(folder / L"launcher.prev.log", "older");
  const test::FileLock hold(folder / L"launcher.prev.log");
  run("new");
  EXPECT_THAT(messages_of(L"launcher.log"), ElementsAre("new"));
}

TEST_F(LogTest, SecondOpenChangesNothing) {
  log::open(path);
  log::write("one");
  log::open(path);
  log::open(long_path(folder / L"other.log"));
  log::write("two");
  EXPECT_THAT(messages_of(L"launcher.log"), ElementsAre("one", "two"));
  EXPECT_FALSE(exists(folder / L"launcher.prev.log"));
  EXPECT_FALSE(exists(folder / L"other.log"));
}

TEST_F(LogTest, WithoutAFileLinesReachTheDebuggerOnly) {
  const DebuggerOutput debugger;
  log::write("before open");
  EXPECT_THAT(test::log_messages(DebuggerOutput::text()), ElementsAre("before open"));
  EXPECT_THAT(list_folder(folder.path()), IsEmpty());

  log::open(long_path(folder / L"missing\\launcher.log"));
  log::write("after a failed open");
  log::open(path);  // a failed open leaves the log closed
  log::write("in the file");
  log::close();
  log::close();
  log::write("after close");
  EXPECT_THAT(test::log_messages(DebuggerOutput::text()),
              ElementsAre("before open", "after a failed open", "in the file", "after close"));
  EXPECT_THAT(messages_of(L"launcher.log"), ElementsAre("in the file"));
}

TEST_F(LogTest, LetsOthersReadButNotWriteOrDeleteTheOpenFile) {
  log::open(path);
  const FileHandle writer(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_FALSE(writer);
  uint32_t error = 0;
  EXPECT_FALSE(delete_file_once(path, error));
  EXPECT_EQ(error, DWORD{ERROR_SHARING_VIOLATION});
}

TEST_F(LogTest, CutsAMessageAt4095BytesAndKeepsTheLineWhole) {
  log::open(path);
  for (const size_t length : {size_t{4094}, size_t{4095}, size_t{4096}, size_t{5000}}) {
    log::write("%s", std::string(length, 'x').c_str());
  }
  log::write("%s", "after");
  const std::string x4095(4095, 'x');
  EXPECT_THAT(messages_of(L"launcher.log"), ElementsAre(x4095.substr(1), x4095, x4095, x4095, "after"));
  const std::string bytes = read_text(path);
  const size_t stamp = 27 + std::max<size_t>(5, std::to_string(GetCurrentThreadId()).size());
  EXPECT_EQ(bytes.size(), 5 * (stamp + 2) + 4094 + 3 * 4095 + 5);
}

TEST_F(LogTest, WritesWholeLinesFromManyThreads) {
  constexpr size_t thread_count = 6;
  constexpr size_t lines_each = 300;
  log::open(path);
  std::vector<std::thread> threads;
  for (size_t thread = 0; thread < thread_count; ++thread) {
    threads.emplace_back([thread] {
      for (size_t line = 0; line < lines_each; ++line) {
        log::write("%llu %llu %s", uint64_t{thread}, uint64_t{line}, std::string(100 + thread * 50, '*').c_str());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::map<size_t, size_t> next_line;
  const std::vector<std::string> messages = messages_of(L"launcher.log");
  ASSERT_EQ(messages.size(), thread_count * lines_each);
  for (const std::string& message : messages) {
    const auto thread = static_cast<size_t>(message.at(0) - '0');
    ASSERT_LT(thread, thread_count) << message;
    ASSERT_EQ(message, std::to_string(thread) + " " + std::to_string(next_line[thread]++) + " " +
                           std::string(100 + thread * 50, '*'));
  }
}

}  // namespace
}  // namespace kvx
