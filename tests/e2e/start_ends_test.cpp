// Runs that end before they ask the server anything.
#include <windows.h>

#include <gtest/gtest.h>

#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/support/file_lock.h"

namespace kvx::test {
namespace {

constexpr char of_an_earlier_run[] = "code=0\nlaunched=1\nlauncher=0.9\nmessage=of an earlier run\n";

// An answer that comes when the gate is open.
ScriptedResponse held_answer(const Gate& gate, int status) {
  return ScriptedResponse().wait_for(gate).then(status_line(status) + "Content-Length: 0\r\nConnection: close\r\n\r\n");
}

class StartEnds : public InBothWays {
 protected:
  void given_an_earlier_run() const { folder().write(".kvx_patch/last_result.txt", of_an_earlier_run); }

  void then_the_earlier_run_is_the_last_known() const {
    EXPECT_EQ(folder().result(), of_an_earlier_run);
    EXPECT_FALSE(folder().has(".kvx_patch/launcher.log"));
    then_requests_are({});
  }

  // A launcher of the same folder, with nobody in front of it.
  RunningLauncher another_launcher() const {
    return {folder().launcher(), L"--base-url=" + server_.base_url() + L" --unattended --hidden", folder().path()};
  }
};
KVX_TELL_IN_BOTH_WAYS(StartEnds);

// ---- 41: another launcher

TEST_P(StartEnds, ASecondLauncherGivesUpAfterTwoSecondsAndLeavesTheFirstAlone) {
  const Gate gate;
  given_an_earlier_run();
  server_.always("manifest.json", held_answer(gate, 404));
  RunningLauncher first = another_launcher();
  ASSERT_TRUE(gate.wait_until_reached());
  const std::vector<std::string> log = folder().log();

  const ULONGLONG start = GetTickCount64();
  when_started();
  then_asks(information_prompt(L"KVX Launcher is already running."), IDOK);
  then_ends_before_its_log(41);
  EXPECT_GE(GetTickCount64() - start, 1800U);
  EXPECT_EQ(folder().result(), of_an_earlier_run);
  EXPECT_EQ(folder().log(), log);
  then_requests_are({});
  EXPECT_TRUE(first.runs());

  gate.open();
  EXPECT_EQ(first.wait_for_end(true), 10U);
  EXPECT_EQ(folder().result(),
            "code=10\nlaunched=0\nlauncher=1.0.0\nmessage=No game version is published on the update server for "
            "channel \"live\".\n");
  EXPECT_EQ(folder().read(".kvx_patch/launcher.lock"), std::to_string(first.id()) + "\n");
}

TEST_P(StartEnds, ASecondLauncherTakesOverWhenTheFirstEndsMeanwhile) {
  given_installed(first_release());
  FileLock of_the_first(in_folder(L".kvx_patch\\launcher.lock"));
  const std::wstring records = in_folder(L".kvx_patch");
  // The mark goes right before the first try.
  ASSERT_TRUE(SetFileAttributesW(records.c_str(), FILE_ATTRIBUTE_SYSTEM));
  when_started();
  ASSERT_TRUE(wait_until([&] { return (GetFileAttributesW(records.c_str()) & FILE_ATTRIBUTE_SYSTEM) == 0; }));
  of_the_first.release();
  then_ends(0, launched, "up to date 1.0");
  EXPECT_EQ(folder().read(".kvx_patch/launcher.lock"), std::to_string(run().id()) + "\n");
}

TEST_P(StartEnds, LaunchersInDifferentFoldersDoNotMeet) {
  const Gate gate;
  given_installed(first_release());
  server_.script("manifest.json", {held_answer(gate, 503)});
  RunningLauncher first = another_launcher();
  ASSERT_TRUE(gate.wait_until_reached());
  const PlayerFolder other;
  RunningLauncher second(other.launcher(), L"--base-url=" + server_.base_url() + L" --unattended --hidden --no-launch",
                         other.path());
  EXPECT_EQ(second.wait_for_end(true), 0U);
  EXPECT_TRUE(first.runs());
  gate.open();
  EXPECT_EQ(first.wait_for_end(true), 0U);
}

// ---- 42: nothing can be written

TEST_P(StartEnds, AFolderWithoutRoomForItsRecordsIsRefused) {
  folder().write(".kvx_patch", "a file");
  when_started();
  then_asks(error_prompt(L"KVX cannot be installed or updated in this folder because it is not writable:\n" +
                         folder().path() +
                         L"\n\nPlease move KVXLauncher.exe into a folder where you can save files (for example "
                         L"Documents\\KVX) and start it again."),
            IDOK);
  then_ends_before_its_log(42);
  EXPECT_EQ(folder().read(".kvx_patch"), "a file");
  then_requests_are({});
}

TEST_P(StartEnds, AFolderWhereTheLockCannotBeMadeIsRefusedAtOnce) {
  given_an_earlier_run();
  folder().write(".kvx_patch/launcher.lock/in the way.txt", "a folder of that name");
  when_started();
  then_asks(error_prompt(L"KVX cannot be updated in this folder because it is not writable:\n" + folder().path()),
            IDOK);
  then_ends_before_its_log(42);
  then_the_earlier_run_is_the_last_known();
}

// ---- 99: wrong settings

TEST_P(StartEnds, AChannelThatIsNoNameIsRefused) {
  for (const std::string channel : {"Live", "LIVE", "live.1", "two words", "../live", "live/", "be+ta", "b\xC3\xA9ta",
                                    "abcdefghijklmnopqrstuvwxyz0123456"}) {
    SCOPED_TRACE(channel);
    when_started(quote_argument(L"--channel=" + to_wide(channel)));
    then_asks(error_prompt(L"Invalid channel name: " + to_wide(channel)), IDOK);
    then_ends(99, not_launched, "");
    then_the_log_says_only({});
    then_requests_are({});
    then_state_is({});
  }
}

TEST_P(StartEnds, ARememberedChannelThatIsNoNameIsRefused) {
  for (const std::string channel : {"Live", "abcdefghijklmnopqrstuvwxyz0123456", " live", ""}) {
    SCOPED_TRACE(channel);
    folder().write(".kvx_patch/state.txt", "channel=" + channel + "\n");
    when_started();
    then_asks(error_prompt(L"Invalid channel name: " + to_wide(channel)), IDOK);
    then_ends(99, not_launched, "");
    then_the_log_says_only({});
    then_requests_are({});
    then_state_is({{"channel", channel}});
  }
}

TEST_P(StartEnds, AChannelGivenAnewMendsARememberedOneThatIsNoName) {
  given_installed(first_release());
  folder().write(".kvx_patch/state.txt", folder().read(".kvx_patch/state.txt") + "channel=Live\n");
  when_started(L"--channel=live");
  then_ends(0, launched, "up to date 1.0");
  EXPECT_EQ(folder().state()["channel"], "live");
}

TEST_P(StartEnds, AServerAddressThatBreaksARuleIsRefused) {
  struct Case {
    const wchar_t* url;
    const wchar_t* shown;
    const wchar_t* reason;
  };
  constexpr wchar_t plain_http[] = L"plain HTTP is only allowed for a local test server (127.0.0.1 / localhost)";
  for (const Case& c :
       {Case{L"update.kvx.example", L"update.kvx.example/", L"invalid URL"},
        {L"not a url/", L"not a url/", L"invalid URL"},
        {L"https://host:65536/", L"https://host:65536/", L"invalid URL"},
        {L"ftp://localhost/patch", L"ftp://localhost/patch/", L"unsupported URL scheme"},
        {L"file:///C:/patch/", L"file:///C:/patch/", L"unsupported URL scheme"},
        {L"https:///patch", L"https:///patch/", L"URL has no host"},
        {L"http:///", L"http:///", L"URL has no host"},
        {L"http://update.kvx.example/patch/", L"http://update.kvx.example/patch/", plain_http},
        {L"http://127.0.0.2:8080", L"http://127.0.0.2:8080/", plain_http},
        {L"http://localhost@update.kvx.example/", L"http://localhost@update.kvx.example/", plain_http}}) {
    SCOPED_TRACE(to_utf8(c.url));
    when_started(quote_argument(std::wstring(L"--base-url=") + c.url));
    then_asks(error_prompt(std::wstring(L"Invalid update server address:\n") + c.shown + L"\n(" + c.reason + L")"),
              IDOK);
    then_ends(99, not_launched, "");
    then_the_log_says_only({});
    then_requests_are({});
    then_state_is({});
  }
}

TEST_P(StartEnds, AChannelIsRememberedEvenWhenTheServerAddressIsWrong) {
  when_started(L"--channel=beta --base-url=ftp://localhost/");
  then_asks(error_prompt(L"Invalid update server address:\nftp://localhost/\n(unsupported URL scheme)"), IDOK);
  then_ends(99, not_launched, "");
  then_state_is({{"channel", "beta"}});
}

}  // namespace
}  // namespace kvx::test
