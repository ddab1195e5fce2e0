// What the program asks of the system, call by call. It takes the place of some of the system's functions in this
// program, so it is a program of its own.
#include <windows.h>

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

#include "foundations/child_process.h"
#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/support/log_capture.h"
#include "tests/support/replaced_function.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

struct System {
  std::vector<std::string> calls;
  DWORD flush_refusal = 0;  // error code of every call; 0 lets them through
  DWORD move_refusal = 0;
  std::vector<DWORD> languages;  // that texts were asked for in
  std::optional<SYSTEMTIME> local_time;
  std::function<std::wstring(const std::wstring&)> short_path;
  std::optional<std::wstring> started_in;  // "none" for the caller's own folder
};

System fake;

std::string name_of(HANDLE file) {
  wchar_t path[MAX_PATH + 1] = {};
  GetFinalPathNameByHandleW(file, path, MAX_PATH, 0);
  return to_utf8(file_name(path));
}

BOOL WINAPI flush(HANDLE file) {
  fake.calls.push_back("flush " + name_of(file));
  SetLastError(fake.flush_refusal);
  static const auto system_flush = system_function<decltype(&FlushFileBuffers)>("FlushFileBuffers");
  return fake.flush_refusal != 0 ? FALSE : system_flush(file);
}

BOOL WINAPI move(LPCWSTR from, LPCWSTR to, DWORD flags) {
  fake.calls.push_back("move " + to_utf8(file_name(from)) + " to " + to_utf8(file_name(to)) + ", flags " +
                       std::to_string(flags));
  SetLastError(fake.move_refusal);
  static const auto system_move = system_function<decltype(&MoveFileExW)>("MoveFileExW");
  return fake.move_refusal != 0 ? FALSE : system_move(from, to, flags);
}

DWORD WINAPI format_message(DWORD flags, LPCVOID source, DWORD code, DWORD language, LPWSTR buffer, DWORD size,
                            va_list* arguments) {
  static const auto system_format = system_function<decltype(&FormatMessageW)>("FormatMessageW");
  fake.languages.push_back(language);
  return system_format(flags, source, code, language, buffer, size, arguments);
}

void WINAPI get_local_time(LPSYSTEMTIME time) {
  static const auto system_local_time = system_function<decltype(&GetLocalTime)>("GetLocalTime");
  if (fake.local_time) {
    *time = *fake.local_time;
  } else {
    system_local_time(time);
  }
}

DWORD WINAPI get_short_path(LPCWSTR path, LPWSTR buffer, DWORD size) {
  static const auto system_short_path = system_function<decltype(&GetShortPathNameW)>("GetShortPathNameW");
  if (!fake.short_path) return system_short_path(path, buffer, size);
  const std::wstring result = fake.short_path(path);
  if (result.empty()) return 0;
  if (size <= result.size()) return static_cast<DWORD>(result.size() + 1);
  result.copy(buffer, result.size());
  buffer[result.size()] = L'\0';
  return static_cast<DWORD>(result.size());
}

// Notes the working folder and starts nothing.
BOOL WINAPI create_process(LPCWSTR /*program*/, LPWSTR /*command_line*/, LPSECURITY_ATTRIBUTES /*of_process*/,
                           LPSECURITY_ATTRIBUTES /*of_thread*/, BOOL /*inherit*/, DWORD /*flags*/,
                           LPVOID /*environment*/, LPCWSTR folder, LPSTARTUPINFOW /*startup*/,
                           LPPROCESS_INFORMATION /*started*/) {
  fake.started_in = folder == nullptr ? L"none" : folder;
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

}  // namespace
}  // namespace kvx::test

KVX_REPLACE(FlushFileBuffers, kvx::test::flush)
KVX_REPLACE(MoveFileExW, kvx::test::move)
KVX_REPLACE(FormatMessageW, kvx::test::format_message)
KVX_REPLACE(GetLocalTime, kvx::test::get_local_time)
KVX_REPLACE(GetShortPathNameW, kvx::test::get_short_path)
KVX_REPLACE(CreateProcessW, kvx::test::create_process)

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SystemCalls : public testing::Test {
 protected:
  SystemCalls() { fake = {}; }
  ~SystemCalls() override { fake = {}; }

  TempFolder folder_;
  TestClock clock_;
  uint32_t error_ = 0;
};

constexpr const char* move_into_place = "move f.tmp to f, flags 9";  // replace existing, write through

TEST_F(SystemCalls, AnAtomicWriteIsFlushedBeforeItIsMovedWithoutACache) {
  static_assert((MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == 9);
  EXPECT_TRUE(write_file_atomic(folder_ / L"f", "new"));
  EXPECT_THAT(fake.calls, ElementsAre("flush f.tmp", move_into_place));
}

TEST_F(SystemCalls, AnAtomicWriteThatCannotBeFlushedIsNotMoved) {
  write_text(folder_ / L"f", "old");
  fake.flush_refusal = ERROR_DISK_FULL;
  EXPECT_FALSE(write_file_atomic(folder_ / L"f", "new", error_));
  EXPECT_EQ(error_, DWORD{ERROR_DISK_FULL});
  EXPECT_THAT(fake.calls, ElementsAre("flush f.tmp"));
  EXPECT_EQ(read_text(folder_ / L"f"), "old");
  EXPECT_THAT(list_folder(folder_.path()), ElementsAre(L"f"));
}

TEST_F(SystemCalls, AFlushedFileIsOnTheDisk) {
  write_text(folder_ / L"f", "x");
  EXPECT_TRUE(flush_file(folder_ / L"f", error_));
  EXPECT_THAT(fake.calls, ElementsAre("flush f"));
  fake.flush_refusal = ERROR_DISK_FULL;
  EXPECT_FALSE(flush_file(folder_ / L"f", error_));
  EXPECT_EQ(error_, DWORD{ERROR_DISK_FULL});
  EXPECT_FALSE(flush_file(folder_ / L"missing", error_));
  EXPECT_EQ(error_, DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(SystemCalls, AMoveIsTriedOnceWhereTheDiskIsFullOrAnother) {
  write_text(folder_ / L"f", "old");
  write_text(folder_ / L"from", "new");
  for (const DWORD code : {DWORD{ERROR_DISK_FULL}, DWORD{ERROR_NOT_SAME_DEVICE}}) {
    fake.calls.clear();
    fake.move_refusal = code;
    EXPECT_FALSE(move_file(folder_ / L"from", folder_ / L"f", error_));
    EXPECT_EQ(error_, code);
    EXPECT_FALSE(write_file_atomic(folder_ / L"f", "new", error_));
    EXPECT_EQ(error_, code);
    EXPECT_THAT(fake.calls, ElementsAre("move from to f, flags 9", "flush f.tmp", move_into_place));
    EXPECT_THAT(clock_.sleeps(), IsEmpty());
  }
  EXPECT_EQ(read_text(folder_ / L"f"), "old");
}

TEST_F(SystemCalls, ErrorTextsAreEnglish) {
  ASSERT_NE(LoadLibraryW(L"winhttp.dll"), nullptr);
  EXPECT_EQ(error_text(0x2FFFFFFF), "error 805306367");
  EXPECT_THAT(fake.languages, ElementsAre(1033, 1033));  // the system's texts, then WinHTTP's
}

TEST_F(SystemCalls, ALogLineBeginsWithTheLocalTime) {
  const LogCapture log;
  const std::wstring path = folder_ / L"times.log";
  log::close();
  log::open(long_path(path));
  fake.local_time = SYSTEMTIME{.wYear = 2026,
                               .wMonth = 3,
                               .wDayOfWeek = 9,
                               .wDay = 4,
                               .wHour = 5,
                               .wMinute = 6,
                               .wSecond = 7,
                               .wMilliseconds = 89};
  log::write("early");
  fake.local_time = SYSTEMTIME{.wYear = 2026,
                               .wMonth = 12,
                               .wDayOfWeek = 9,
                               .wDay = 31,
                               .wHour = 23,
                               .wMinute = 58,
                               .wSecond = 59,
                               .wMilliseconds = 987};
  log::write("late");
  log::close();
  const std::string lines = read_text(path);
  EXPECT_THAT(lines, testing::StartsWith("2026-03-04 05:06:07.089 ["));
  EXPECT_THAT(lines, testing::HasSubstr("\r\n2026-12-31 23:58:59.987 ["));
}

class WorkingFolder : public SystemCalls {
 protected:
  static std::wstring of_length(size_t length) { return L"C:\\" + std::wstring(length - 3, L'f'); }

  std::wstring start_in(const std::wstring& folder) {
    fake.started_in.reset();
    uint32_t process_id = 0;
    EXPECT_FALSE(start_program(L"C:\\game.exe", L"game.exe", folder, process_id, error_));
    return fake.started_in.value_or(L"nothing was started");
  }

  const LogCapture log_;
};

TEST_F(WorkingFolder, IsTheFolderAsLongAsTheSystemTakesItsPath) {
  fake.short_path = [](const std::wstring&) -> std::wstring {
    ADD_FAILURE() << "nobody needs a short path";
    return {};
  };
  for (const std::wstring& folder : {std::wstring(L"C:\\game"), of_length(257), of_length(258)}) {
    EXPECT_EQ(start_in(folder), folder);
  }
  EXPECT_EQ(start_in(L"C:"), L"C:\\");
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(WorkingFolder, IsAnOverlongFoldersShortPath) {
  const std::wstring longest = of_length(258);
  struct Case {
    std::wstring folder;
    std::wstring asked;
    std::wstring answer;
    std::wstring started_in;
  };
  const std::wstring below_share = std::wstring(300, L's');
  for (const Case& c : {Case{of_length(259), LR"(\\?\)" + of_length(259), LR"(\\?\C:\FFFFFF~1)", L"C:\\FFFFFF~1"},
                        Case{of_length(2000), LR"(\\?\)" + of_length(2000), LR"(\\?\)" + longest, longest},
                        Case{LR"(\\server\share\)" + below_share, LR"(\\?\UNC\server\share\)" + below_share,
                             LR"(\\?\UNC\server\share\SSSSSS~1)", LR"(\\server\share\SSSSSS~1)"}}) {
    std::wstring asked;
    fake.short_path = [&](const std::wstring& path) {
      asked = path;
      return c.answer;
    };
    EXPECT_EQ(start_in(c.folder), c.started_in);
    EXPECT_EQ(asked, c.asked);
  }
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(WorkingFolder, IsTheLaunchersOwnWhereAnOverlongFolderHasNoShortPath) {
  const std::wstring folder = of_length(259);
  for (const std::wstring& answer : {std::wstring(), LR"(\\?\)" + folder}) {
    fake.short_path = [&](const std::wstring&) { return answer; };
    EXPECT_EQ(start_in(folder), L"none");
  }
  const std::string line = "the folder's path is too long for a working folder: starting C:\\game.exe without it";
  EXPECT_THAT(log_.messages(), ElementsAre(line, line));
}

}  // namespace
}  // namespace kvx::test
