// What a run asks of the system at moments that no server and no file can bring about. It takes the place of some of
// the system's functions in this program, so it is a program of its own.
#include <windows.h>

#include <functional>
#include <gmock/gmock.h>
#include <optional>
#include <string>
#include <vector>

#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "launcher/running_program.h"
#include "tests/launcher/updater_fixture.h"
#include "tests/support/replaced_function.h"
#include "tests/support/test_clock.h"
#include "tests/support/test_process.h"
#include "ui/prompts.h"

namespace kvx::test {
namespace {

constexpr DWORD previous_launcher_id = 0x7FFFFFF0;
constexpr DWORD game_id = 4711;

struct System {
  HANDLE previous_launcher = nullptr;
  std::vector<DWORD> waits_for_it_ms;
  std::function<void(const std::wstring& path)> on_open;
  std::function<void(const std::wstring& folder)> on_list;
  std::function<void(const std::wstring& path)> on_query;
  std::function<void(const std::wstring& program)> on_start;  // in the place of a start
  std::optional<std::wstring> final_path;                     // of every file
  bool blobs_find_no_room = false;
  std::wstring text_of_every_error;  // the system's own when empty
};

System fake;

HANDLE new_event() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }

HANDLE WINAPI open_process(DWORD access, BOOL inherit, DWORD process_id) {
  static const auto system_open = system_function<decltype(&OpenProcess)>("OpenProcess");
  if (process_id != previous_launcher_id) return system_open(access, inherit, process_id);
  fake.previous_launcher = new_event();
  return fake.previous_launcher;
}

DWORD WINAPI wait_for(HANDLE object, DWORD milliseconds) {
  static const auto system_wait = system_function<decltype(&WaitForSingleObject)>("WaitForSingleObject");
  if (fake.previous_launcher == nullptr || object != fake.previous_launcher) return system_wait(object, milliseconds);
  fake.waits_for_it_ms.push_back(milliseconds);
  fake.previous_launcher = nullptr;  // it is closed next, and its value may then be another handle's
  return WAIT_TIMEOUT;
}

HANDLE WINAPI open_file(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                        DWORD flags, HANDLE template_file) {
  static const auto system_create = system_function<decltype(&CreateFileW)>("CreateFileW");
  if (fake.on_open) fake.on_open(path);
  return system_create(path, access, share, security, disposition, flags, template_file);
}

HANDLE WINAPI list(LPCWSTR pattern, FINDEX_INFO_LEVELS level, LPVOID data, FINDEX_SEARCH_OPS search, LPVOID filter,
                   DWORD flags) {
  static const auto system_find = system_function<decltype(&FindFirstFileExW)>("FindFirstFileExW");
  if (fake.on_list) fake.on_list(parent_path(pattern));
  return system_find(pattern, level, data, search, filter, flags);
}

DWORD WINAPI query(LPCWSTR path) {
  static const auto system_query = system_function<decltype(&GetFileAttributesW)>("GetFileAttributesW");
  if (fake.on_query) fake.on_query(path);
  return system_query(path);
}

BOOL WINAPI move(LPCWSTR from, LPCWSTR to, DWORD flags) {
  static const auto system_move = system_function<decltype(&MoveFileExW)>("MoveFileExW");
  if (!fake.blobs_find_no_room || !std::wstring_view(from).ends_with(L".part")) return system_move(from, to, flags);
  SetLastError(ERROR_DISK_FULL);
  return FALSE;
}

DWORD WINAPI format_message(DWORD flags, LPCVOID source, DWORD code, DWORD language, LPWSTR buffer, DWORD size,
                            va_list* arguments) {
  static const auto system_format = system_function<decltype(&FormatMessageW)>("FormatMessageW");
  const std::wstring& text = fake.text_of_every_error;
  if (text.empty()) return system_format(flags, source, code, language, buffer, size, arguments);
  auto* copy = static_cast<wchar_t*>(LocalAlloc(LPTR, (text.size() + 1) * sizeof(wchar_t)));
  text.copy(copy, text.size());
  *reinterpret_cast<wchar_t**>(buffer) = copy;  // with ALLOCATE_BUFFER the argument is a pointer's address
  return static_cast<DWORD>(text.size());
}

BOOL WINAPI create_process(LPCWSTR program, LPWSTR command_line, LPSECURITY_ATTRIBUTES process_security,
                           LPSECURITY_ATTRIBUTES thread_security, BOOL inherit, DWORD flags, LPVOID environment,
                           LPCWSTR folder, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION started) {
  static const auto system_create = system_function<decltype(&CreateProcessW)>("CreateProcessW");
  if (!fake.on_start) {
    return system_create(program, command_line, process_security, thread_security, inherit, flags, environment, folder,
                         startup, started);
  }
  fake.on_start(program);
  *started = {new_event(), new_event(), game_id, 0};
  return TRUE;
}

DWORD WINAPI final_path(HANDLE file, LPWSTR buffer, DWORD size, DWORD flags) {
  static const auto system_final_path =
      system_function<decltype(&GetFinalPathNameByHandleW)>("GetFinalPathNameByHandleW");
  if (!fake.final_path) return system_final_path(file, buffer, size, flags);
  const std::wstring& path = *fake.final_path;
  if (path.empty()) return 0;
  if (size <= path.size()) return static_cast<DWORD>(path.size() + 1);
  path.copy(buffer, path.size());
  return static_cast<DWORD>(path.size());
}

}  // namespace
}  // namespace kvx::test

KVX_REPLACE(OpenProcess, kvx::test::open_process)
KVX_REPLACE(WaitForSingleObject, kvx::test::wait_for)
KVX_REPLACE(CreateFileW, kvx::test::open_file)
KVX_REPLACE(FindFirstFileExW, kvx::test::list)
KVX_REPLACE(GetFileAttributesW, kvx::test::query)
KVX_REPLACE(MoveFileExW, kvx::test::move)
KVX_REPLACE(FormatMessageW, kvx::test::format_message)
KVX_REPLACE(CreateProcessW, kvx::test::create_process)
KVX_REPLACE(GetFinalPathNameByHandleW, kvx::test::final_path)

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class SystemCalls : public UpdaterFixture {
 protected:
  SystemCalls() { fake = {}; }
  ~SystemCalls() override { fake = {}; }

  static ReleaseBuilder release() { return ReleaseBuilder().version("1.1").serial(7).file("bin/game.exe", "game 1.1"); }

  // The user cancels when a file or folder of this name is reached.
  [[nodiscard]] std::function<void(const std::wstring&)> cancel_at(const std::wstring& name) {
    return [this, name](const std::wstring& path) {
      if (equals_ignore_case(file_name(path), name)) ui.cancel_requested = true;
    };
  }

  TestClock clock;
};

TEST_F(SystemCalls, APreviousLauncherIsWaitedForThirtySecondsAtMost) {
  options.wait_pid = previous_launcher_id;
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);  // and the run goes on
  EXPECT_THAT(fake.waits_for_it_ms, ElementsAre(30000U));
}

TEST_F(SystemCalls, TheStateIsRewrittenBeforeTheGameStarts) {
  options.no_launch = false;
  publish(release());
  std::vector<std::string> at_start;
  fake.on_start = [&](const std::wstring& program) {
    EXPECT_EQ(program, installed(L"bin\\game.exe"));
    at_start.push_back(state());
    EXPECT_EQ(read_text(staged(L"installed_manifest.json")), release().json());
  };
  const std::string installed_state =
      "complete=1\ninstalled.channel=live\ninstalled.serial=7\ninstalled.version=1.1\nserial.live=7\n";

  write_text(staged(L"state.txt"), "complete=0\ninstalled.version=1.0\n");
  EXPECT_EQ(run(), RunOutcome::success);  // of an update
  EXPECT_EQ(result(), result_text(0, 1, "updated to 1.1"));

  write_text(staged(L"state.txt"), "complete=0\n");
  EXPECT_EQ(run(), RunOutcome::success);  // of files that were there already
  EXPECT_EQ(result(), result_text(0, 1, "up to date 1.1"));
  EXPECT_THAT(at_start, ElementsAre(installed_state + "updating.serial=7\n", installed_state));
}

TEST_F(SystemCalls, ADiskThatIsFullIsOneWhereverTheReasonSaysSo) {
  publish(release());
  write_text(staged(L"state.txt"), "installed.version=1.0\n");
  fake.blobs_find_no_room = true;
  fake.text_of_every_error = L"Alas, the disk is full today.\r\n";
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::disk_full);
  EXPECT_EQ(result(), result_text(31, 0, "cannot store a downloaded file: Alas, the disk is full today (error 112)"));
}

TEST_F(SystemCalls, ACancelWhileAReleaseIsJudgedEndsTheRunWithoutAQuestion) {
  // The launcher's own file is read before the rest of the manifest is refused.
  publish(release().launcher("1.0.0", "this launcher").member("format", "2"));
  fake.on_open = cancel_at(L"KVXLauncher.exe");
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_THAT(ui.prompts(), IsEmpty());
  EXPECT_EQ(result(), result_text(60, 0, ""));
}

TEST_F(SystemCalls, ACancelWhileBlobsAreLookedForEndsTheRunWithoutAQuestion) {
  publish(release());
  fake.on_list = cancel_at(L"blobs");
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_THAT(ui.prompts(), IsEmpty());
  EXPECT_EQ(result(), result_text(60, 0, ""));
  EXPECT_THAT(server.requests_for(blob_url_path("game 1.1")), IsEmpty());
}

// Whether the installation is up to date is then not known, so nothing is recorded of it.
TEST_F(SystemCalls, ACancelWhileRemovalsAreLookedForEndsTheRunAsItWas) {
  install_files(release());
  publish(release().remove("first.pak").remove("second.pak"));
  write_text(installed(L"second.pak"), "old");
  fake.on_query = cancel_at(L"first.pak");
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_EQ(result(), result_text(60, 0, ""));
  EXPECT_FALSE(exists(staged(L"state.txt")));
  EXPECT_TRUE(exists(installed(L"second.pak")));
}

TEST_F(SystemCalls, ACancelWhileTheInstalledManifestIsReadEndsTheRunWithoutAnOffer) {
  write_text(installed(L"KVX.exe"), "game");  // nothing is published
  fake.on_open = cancel_at(L"installed_manifest.json");
  EXPECT_EQ(run(), RunOutcome::cancelled);
  EXPECT_THAT(ui.prompts(), IsEmpty());
  EXPECT_THAT(result(), StartsWith("code=60\nlaunched=0\n"));
}

// A drive letter that stands for the game's folder: programs run below the folder's final path. Wine does not tell it,
// so it is told here, for a folder that stands in for the letter.
TEST_F(SystemCalls, AProgramIsFoundByTheFinalPathOfItsFolder) {
  const std::wstring letter = folder / L"letter";
  write_text(letter + L"\\KVXLauncher.exe", "launcher");
  copy_test_program(installed(L"game\\KVX.exe"));
  WaitingProgram running(installed(L"game\\KVX.exe"));
  struct Case {
    std::wstring final_path;
    bool found;
  };
  const std::wstring game = installed(L"game");
  for (const Case& c : {Case{LR"(\\?\)" + game, true}, Case{LR"(\\?\)" + game + L'\\', true},  // as of a root
                        Case{LR"(\\?\)" + folder.path(), true}, Case{LR"(\\?\)" + letter, false},
                        Case{LR"(\\?\)" + game.substr(0, game.size() - 1), false},
                        Case{LR"(\\?\UNC\server\share)", false}, Case{L"", false}}) {
    fake.final_path = c.final_path;
    std::wstring image_path;
    EXPECT_EQ(find_running_program(letter, image_path), c.found) << to_utf8(c.final_path);
    EXPECT_EQ(equals_ignore_case(image_path, installed(L"game\\KVX.exe")), c.found) << to_utf8(image_path);
  }
  fake.final_path.reset();
  running.end();
}

}  // namespace
}  // namespace kvx::test
