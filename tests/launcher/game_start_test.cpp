#include "launcher/game_start.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundations/error_text.h"
#include "foundations/text.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_ui.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_process.h"
#include "tests/support/window_driver.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using Args = std::vector<std::string>;

class GameStart : public testing::Test {
 protected:
  RunOutcome start(const std::string& exe, const Args& args, bool no_launch = false) {
    return start_game({ui_, folder_.path(), no_launch, launched_}, exe, args);
  }

  test::TempFolder folder_;
  test::LogCapture log_;
  test::ScriptedUi ui_;
  bool launched_ = false;
};

TEST_F(GameStart, GivesTheProgramItsArgumentsInTheInstallFolder) {
  const std::wstring program = folder_ / L"bin dir\\the game.exe";
  test::copy_test_program(program);
  const Args args = {"plain",  "two words", "",      "say \"hi\"",           "trailing\\", "blank and trailing\\",
                     "tab\tx", "a\\\\\"b",  "--x=y", "\xC3\xA4\xE2\x82\xAC", "C:\\a b\\c"};
  EXPECT_EQ(start("bin dir/the game.exe", args), RunOutcome::success);
  EXPECT_TRUE(launched_);
  ASSERT_TRUE(test::wait_until([&] { return test::exists(folder_ / L"started.txt"); }));
  std::string expected = "directory=" + to_utf8(folder_.path()) + "\n";
  for (const std::string& argument : args) expected += "argument=" + argument + "\n";
  EXPECT_THAT(test::read_text(folder_ / L"started.txt"), testing::StartsWith(expected));
  EXPECT_THAT(ui_.events(), ElementsAre(test::status_event(L"Starting KVX...")));
  const std::vector<std::string> lines = log_.messages();
  ASSERT_EQ(lines.size(), 1U);
  const std::string started = "started " + to_utf8(program) + " (pid ";
  EXPECT_THAT(lines[0], testing::StartsWith(started));
  EXPECT_THAT(lines[0].substr(std::min(started.size(), lines[0].size())), MatchesRegex("\\d+\\)"));
}

TEST_F(GameStart, DoesNotWaitForTheGame) {
  test::copy_test_program(folder_ / L"KVX.exe");
  const KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, L"kvx-game-start-test"));
  EXPECT_EQ(start("KVX.exe", {"wait-for=kvx-game-start-test"}), RunOutcome::success);  // it would wait for a minute
  EXPECT_TRUE(test::wait_until([&] { return test::exists(folder_ / L"started.txt"); }));
  SetEvent(event.get());
}

TEST_F(GameStart, DoesNothingButSaySoWithNoLaunch) {
  EXPECT_EQ(start("bin/missing.exe", {"a"}, true), RunOutcome::success);
  EXPECT_FALSE(launched_);
  EXPECT_TRUE(ui_.events().empty());
  EXPECT_THAT(log_.messages(), ElementsAre("--no-launch: not starting bin/missing.exe"));
}

TEST_F(GameStart, TellsWhereTheProgramWasExpected) {
  test::write_text(folder_ / L"bin\\folder.exe\\x", "a folder is not a program");
  for (const char* exe : {"bin/missing.exe", "bin/folder.exe"}) {
    test::ScriptedUi ui;
    ui.answer(button_ok);
    EXPECT_EQ(start_game({ui, folder_.path(), false, launched_}, exe, {}), RunOutcome::game_not_started);
    EXPECT_THAT(ui.events(), ElementsAre(test::prompt_event(L"The game program was not found:\n" + folder_.path() +
                                                                L"\\bin\\" + to_wide(exe).substr(4),
                                                            style_error)));
  }
  EXPECT_FALSE(launched_);
  EXPECT_TRUE(log_.messages().empty());
}

TEST_F(GameStart, TellsWhyTheProgramCouldNotBeStarted) {
  test::write_text(folder_ / L"KVX.exe", "this is no program");
  ui_.answer(button_ok);
  EXPECT_EQ(start("KVX.exe", {}), RunOutcome::game_not_started);
  EXPECT_FALSE(launched_);
  const std::string words = error_text(ERROR_BAD_EXE_FORMAT);
  EXPECT_THAT(ui_.events(),
              ElementsAre(test::status_event(L"Starting KVX..."),
                          test::prompt_event(L"KVX could not be started:\n" + to_wide(words), style_error)));
  EXPECT_THAT(log_.messages(), ElementsAre("CreateProcess failed: " + words));
}

}  // namespace
}  // namespace kvx
