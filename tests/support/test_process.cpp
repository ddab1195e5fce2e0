#include "tests/support/test_process.h"

#include <atomic>
#include <gtest/gtest.h>

#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_paths.h"
#include "tests/support/window_driver.h"

namespace kvx::test {
namespace {

std::wstring test_program_path() { return full_path(to_wide(build_path(KVX_TEST_PROGRAM))); }

std::wstring new_event_name() {
  static std::atomic<int> count{0};
  return L"kvx-test-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
}

}  // namespace

void copy_program(const std::wstring& from, const std::wstring& to) {
  uint32_t error = 0;
  EXPECT_TRUE(create_folders(parent_path(to)));
  EXPECT_TRUE(copy_file(full_path(from), to, error)) << to_utf8(to) << ": error " << error;
}

void copy_test_program(const std::wstring& to) { copy_program(test_program_path(), to); }

std::string test_program_bytes() { return read_text(test_program_path()); }

TestProcess::TestProcess(const std::wstring& program, const std::wstring& arguments, const std::wstring& folder) {
  std::wstring command_line = quote_argument(program) + L" " + arguments;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  const BOOL ok = CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                 folder.c_str(), &startup, &started);
  if (ok == 0) {
    ADD_FAILURE() << to_utf8(program) << " did not start: error " << GetLastError();
    return;
  }
  CloseHandle(started.hThread);
  process_.reset(started.hProcess);
  id_ = started.dwProcessId;
}

TestProcess::~TestProcess() { terminate(); }

bool TestProcess::runs() const { return WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT; }

std::optional<uint32_t> TestProcess::wait(uint32_t limit_ms) const {
  DWORD code = 0;
  if (WaitForSingleObject(process_.get(), limit_ms) != WAIT_OBJECT_0 ||
      GetExitCodeProcess(process_.get(), &code) == 0) {
    ADD_FAILURE() << "the program did not end";
    return std::nullopt;
  }
  return code;
}

void TestProcess::terminate() {
  if (!process_ || !runs()) return;
  TerminateProcess(process_.get(), 1);
  WaitForSingleObject(process_.get(), usual_limit_ms);
}

WaitingProgram::WaitingProgram(const std::wstring& program) {
  const std::wstring name = new_event_name();
  event_.reset(CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
  const TempFolder record_folder;
  process_.emplace(program, L"wait-for=" + name, record_folder.path());
  EXPECT_TRUE(wait_until([&] { return exists(record_folder / L"started.txt"); })) << "it did not come up";
}

void WaitingProgram::end() {
  SetEvent(event_.get());
  process_->wait();
}

}  // namespace kvx::test
