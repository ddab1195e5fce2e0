#include "launcher/running_program.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundations/text.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_ui.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_process.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

using testing::ElementsAre;

TEST(RunningProgram, IsAnyProgramBelowTheInstallFolder) {
  const test::TempFolder parent;
  const struct {
    const wchar_t* program;
    const wchar_t* install_dir;
    bool found;
  } cases[] = {
      {L"KVX\\KVX.exe", L"KVX", true},
      {L"KVX\\bin\\deep\\tool.exe", L"KVX", true},
      {L"KVX\\copy\\KVXLauncher.exe", L"KVX", true},  // a second launcher
      {L"KVX\\.kvx_patch\\x.exe", L"KVX", true},
      {L"KVX\\case.exe", L"kvx", true},
      {L"kvx3\\case.exe", L"KVX3", true},
      {L"KVX2\\x.exe", L"KVX", false},  // a sibling whose name starts the same
      {L"other\\KVX\\x.exe", L"KVX", false},
      {L"x.exe", L"KVX", false},
  };
  for (const auto& item : cases) {
    const std::wstring program = parent / item.program;
    test::copy_test_program(program);
    test::WaitingProgram running(program);
    std::wstring image_path;
    EXPECT_EQ(find_running_program(parent / item.install_dir, image_path), item.found) << to_utf8(program);
    if (item.found) {
      EXPECT_TRUE(equals_ignore_case(image_path, program)) << to_utf8(image_path);
    }
    running.end();
    EXPECT_FALSE(find_running_program(parent / item.install_dir, image_path)) << to_utf8(program);
  }
}

// The test program looks at its own folder, as a launcher does.
TEST(RunningProgram, IsNeverTheLauncherItself) {
  const test::TempFolder folder;
  const std::wstring program = folder / L"KVXLauncher.exe";
  test::copy_test_program(program);
  const auto other_program = [&] {
    EXPECT_EQ(test::TestProcess(program, L"", folder.path()).wait(), 0U);
    const std::string record = test::read_text(folder / L"started.txt");
    return record.substr(record.find("other_program="));
  };
  EXPECT_EQ(other_program(), "other_program=none\n");
  test::WaitingProgram second(program);
  EXPECT_EQ(other_program(), "other_program=" + to_utf8(program) + "\n");
  second.end();
}

TEST(WaitUntilGameClosed, AsksUntilTheProgramIsClosed) {
  const test::TempFolder folder;
  const std::wstring program = folder / L"KVX.exe";
  test::copy_test_program(program);
  test::WaitingProgram running(program);
  const test::LogCapture log;
  test::ScriptedUi ui;
  int asked = 0;
  ui.on_prompt([&](const test::UiEvent&) {
    if (++asked == 2) running.end();
    return button_retry;
  });
  EXPECT_TRUE(wait_until_game_closed(ui, folder.path()));
  const test::UiEvent question = test::prompt_event(
      L"KVX is still running:\n" + program + L"\n\nPlease close the game, then press Retry to install the update.",
      style_retry);
  EXPECT_THAT(ui.events(), ElementsAre(question, question));
  const std::string line = "a program from the install folder is running: " + to_utf8(program);
  EXPECT_THAT(log.messages(), ElementsAre(line, line));
}

TEST(WaitUntilGameClosed, GivesUpAtAnyOtherAnswer) {
  const test::TempFolder folder;
  test::copy_test_program(folder / L"KVX.exe");
  test::WaitingProgram running(folder / L"KVX.exe");
  for (const uint32_t answer : {button_cancel, button_ok, 0U}) {
    test::ScriptedUi ui;
    ui.answer(answer);
    EXPECT_FALSE(wait_until_game_closed(ui, folder.path()));
    EXPECT_EQ(ui.prompts().size(), 1U);
  }
  running.end();
}

TEST(WaitUntilGameClosed, AsksNothingWhenNothingRuns) {
  const test::TempFolder folder;
  test::ScriptedUi ui;
  EXPECT_TRUE(wait_until_game_closed(ui, folder.path()));
  EXPECT_TRUE(ui.events().empty());
}

}  // namespace
}  // namespace kvx
