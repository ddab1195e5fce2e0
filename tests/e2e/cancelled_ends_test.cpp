// Runs that the player cancels, and the moments when that is not possible.
#include <windows.h>

#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

#include "foundations/display_format.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"

namespace kvx::test {
namespace {

// The ways to cancel.
struct Gesture {
  const char* name;
  void (*make)(RunningLauncher& run);
};
constexpr Gesture gestures[] = {
    {"the button", [](RunningLauncher& run) { run.press_cancel(); }},
    {"the window's close button", [](RunningLauncher& run) { run.close_window(); }},
    {"Escape", [](RunningLauncher& run) { PostMessageW(run.window().window, WM_KEYDOWN, VK_ESCAPE, 0); }},
};

// The head of an answer with this body.
std::string head_of(const std::string& body) {
  return status_line(200) + "Connection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
}

// An answer of which this much comes at once and a little more when the gate is open.
ScriptedResponse held_after(size_t count, const std::string& body, const Gate& gate) {
  return ScriptedResponse(head_of(body) + body.substr(0, count)).wait_for(gate).then(body.substr(count, 1000));
}

// Content that does not repeat itself.
std::string content_of(size_t size) {
  std::string content;
  for (size_t i = 0; content.size() < size; ++i) content += std::to_string(i) + ' ';
  content.resize(size);
  return content;
}

class Cancelled : public Story {
 protected:
  void when_cancelled(const Gesture& gesture) {
    run().wait_until_cancel_is(true);
    gesture.make(run());
  }

  // Version 1.1, whose data/a.txt is so long that its download can be watched.
  static ReleaseBuilder long_update() {
    return ReleaseBuilder()
        .version("1.1")
        .serial(2)
        .file("bin/game.exe", game_program())
        .file("data/a.txt", long_content());
  }

  static const std::string& long_content() {
    static const std::string content = content_of(3'000'000);
    return content;
  }

  // No prompt, no game, and the installation as it was.
  void then_it_ends_and_nothing_happened() {
    then_ends(60, not_launched, "");
    then_game_is(files_of(first_release()));
    then_state_is(installed_state("1.0", "1"));
    then_game_was_not_started();
  }

  // Version 1.1 with one file more than the first release, data/big.bin.
  static ReleaseBuilder update_with_a_big_file(uint64_t size, const std::string& digest) {
    return with_a_big_file(first_release().version("1.1").serial(2), size, digest);
  }

  // The files whose digests are remembered, in any order.
  std::vector<std::string> remembered_files() const {
    std::vector<std::string> names;
    std::istringstream lines(folder().read(".kvx_patch/hashcache.txt"));
    for (std::string line; std::getline(lines, line);) {
      for (int field = 0; field < 3; ++field) line.erase(0, line.find(' ') + 1);
      names.push_back(line);
    }
    std::sort(names.begin(), names.end());
    return names;
  }
};

// ---- while connecting

// The server keeps back the rest of its answer for as long as the launcher runs.
TEST_F(Cancelled, WhileTheServerIsSilent) {
  given_installed(first_release());
  const std::string answer_begins = head_of(first_release().json());
  struct Case {
    const char* name;
    std::string comes;
  };
  for (const Case& c :
       {Case{"before its answer", ""}, Case{"inside the status line", answer_begins.substr(0, 11)},
        Case{"inside the head", answer_begins.substr(0, answer_begins.size() - 5)},
        Case{"before the body", answer_begins}, Case{"inside the body", answer_begins + "{\"format\""}}) {
    for (const Gesture& gesture : gestures) {
      SCOPED_TRACE(std::string(c.name) + ", " + gesture.name);
      const Gate gate;
      server_.script("manifest.json", {ScriptedResponse(c.comes).wait_for(gate)});
      when_started();
      run().wait_for_status(L"Connecting to the update server...");
      ASSERT_TRUE(gate.wait_until_reached());
      when_cancelled(gesture);
      then_it_ends_and_nothing_happened();
      gate.open();
      then_the_log_says({"manifest fetch failed (attempt 1): cancelled"});
      then_requests_are({"manifest.json"});
    }
  }
}

TEST_F(Cancelled, WhileTheServerSendsOneByteASecond) {
  given_installed(first_release());
  const std::string manifest = first_release().json();
  const KernelHandle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  ScriptedResponse response(head_of(manifest));
  for (const char byte : manifest.substr(0, 120)) {
    response.then({byte}).call([event = ended.get()] { WaitForSingleObject(event, 1000); });
  }
  server_.script("manifest.json", {response});
  when_started();
  run().wait_for_status(L"Connecting to the update server...");
  ASSERT_TRUE(server_.wait_for_requests(requests_before_this_run() + 1));
  when_cancelled(gestures[0]);
  then_it_ends_and_nothing_happened();
  SetEvent(ended.get());
  then_the_log_says({"manifest fetch failed (attempt 1): cancelled"});
}

TEST_F(Cancelled, WhileItWaitsToAskAgain) {
  given_installed(first_release());
  const Gate late;  // for a cancel that comes after the wait
  server_.script("manifest.json", {answer(503), answer(503), ScriptedResponse().wait_for(late)});
  when_started();
  run().wait_until_cancel_is(true);  // finds the button, so that it is pressed at once later on
  when_it_has_logged("manifest fetch: HTTP 503", 2);
  run().press_cancel();
  then_it_ends_and_nothing_happened();
  late.open();
  then_the_log_has({"manifest fetch: HTTP 503", "manifest fetch: HTTP 503", "exit code 60 (launched=0)"});
}

TEST_F(Cancelled, WhileTheSignatureIsFetched) {
  given_installed(first_release());
  for (const Gesture& gesture : gestures) {
    SCOPED_TRACE(gesture.name);
    const Gate gate;
    server_.script("manifest.sig", {ScriptedResponse().wait_for(gate)});
    when_started();
    ASSERT_TRUE(gate.wait_until_reached());
    when_cancelled(gesture);
    then_it_ends_and_nothing_happened();
    gate.open();
    then_the_log_says({"signature fetch failed (attempt 1): cancelled"});
    then_requests_are({"manifest.json", "manifest.sig"});
  }
}

// ---- while the installed files are checked

TEST_F(Cancelled, WhileInstalledFilesAreReadAndRemembersThoseItHasRead) {
  constexpr uint64_t big = 20'000'000'000;
  given_installed(first_release());
  folder().write_zeros("data/big.bin", big);
  given_published(update_with_a_big_file(big, std::string(64, '0')));
  const auto then_only_big_is_unknown = [&] {
    EXPECT_THAT(remembered_files(), testing::ElementsAre("bin\\game.exe", "data\\a.txt"));
    then_requests_are({"manifest.json", "manifest.sig"});
    then_staged_is({});
    then_state_is(installed_state("1.0", "1"));
  };

  folder().write(".kvx_patch/hashcache.txt", "");
  const uint64_t all = game_program().size() + 8 + big;
  when_started();
  run().wait_for_status(L"Checking installed files...");
  run().wait_for_detail(L"Checked *B of " + format_size(all));
  run().press_cancel();
  then_ends(60, not_launched, "");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)", "manifest: version 1.1 serial 2, 3 files, *",
                     "checking 3 installed files (" + std::to_string(all) + " bytes)"});
  then_only_big_is_unknown();

  // The next check goes on from there.
  when_started();
  run().wait_for_detail(L"Checked *B of " + format_size(big));
  run().close_window();
  then_ends(60, not_launched, "");
  then_the_log_has({"checking 1 installed files (" + std::to_string(big) + " bytes)"});
  then_only_big_is_unknown();
}

// ---- at the question

TEST_F(Cancelled, AtTheQuestionOfAFirstInstall) {
  given_published(first_release());
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"), IDNO);
  then_ends(60, not_launched, "");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)", "manifest: version 1.0 serial 1, *",
                     "update to 1.0: 2 files to replace (2 unique, * bytes, 0 already staged), 0 to remove"});
  then_requests_are({"manifest.json", "manifest.sig"});
  then_game_is({});
  then_state_is({});
  then_staged_is({});
}

// As the system asks a window to close, also one that has a question in front of it.
TEST_F(Cancelled, BehindTheQuestionOfAFirstInstallWhateverIsAnswered) {
  for (const uint32_t given_answer : {uint32_t{IDYES}, uint32_t{IDNO}}) {
    SCOPED_TRACE(given_answer);
    use_folder(std::make_unique<PlayerFolder>());
    given_published(first_release());
    when_started();
    then_shows(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"));
    PostMessageW(run().window().window, WM_CLOSE, 0, 0);
    run().wait_until_cancelling();
    run().answer(given_answer);
    then_ends(60, not_launched, "");
    std::vector<std::string> log = {"manifest: * bytes, signature OK (key primary)",
                                    "manifest: version 1.0 serial 1, *",
                                    "update to 1.0: 2 files to replace (2 unique, * bytes, 0 already staged), *"};
    if (given_answer == IDYES) log.emplace_back("disk: * bytes free, * needed");
    then_the_log_says(log);
    then_requests_are({"manifest.json", "manifest.sig"});
    then_game_is({});
    then_state_is({});
    then_staged_is({});
  }
}

TEST_F(Cancelled, AtTheOfferToStartTheInstalledGame) {
  given_installed(first_release());
  struct Case {
    const char* name;
    std::function<void(ScriptedServer&)> happens;
    std::string message;
  };
  const std::string of_another_game = first_release().member("product", "\"Chess\"").json();
  for (const Case& c :
       {Case{"10", [](ScriptedServer& server) { server.script("manifest.json", {answer(404)}); },
             "No game version is published on the update server for channel \"live\"."},
        Case{"20",
             [](ScriptedServer& server) {
               server.script("manifest.sig", {answer(200, "?"), answer(200, "?"), answer(200, "?")});
             },
             "The update information from the server failed the security check (signature file has an unknown format) "
             "and was ignored."},
        Case{"21",
             [&](ScriptedServer& server) {
               server.script("manifest.json", {answer(200, of_another_game)});
               server.script("manifest.sig", {answer(200, sign_manifest(of_another_game))});
             },
             "The update information from the server is not for KVX."}}) {
    SCOPED_TRACE(c.name);
    c.happens(server_);
    when_started();
    then_asks(confirm_prompt(to_wide(c.message) + L"\n\nThe installed version 1.0 will be started."), IDCANCEL);
    then_ends(60, not_launched, c.message);
    then_the_log_has({std::string("no usable update information (code ") + c.name + "): " + c.message});
    then_the_log_lacks("started *");
    then_game_was_not_started();
    then_state_is(installed_state("1.0", "1"));
  }
}

// ---- while the update is downloaded

TEST_F(Cancelled, WhileTheUpdateIsDownloadedWhichTheNextRunGoesOnWith) {
  constexpr size_t come = 1'000'000;
  for (const Gesture& gesture : gestures) {
    SCOPED_TRACE(gesture.name);
    use_folder(std::make_unique<PlayerFolder>());
    given_installed(first_release());
    const ReleaseBuilder release = long_update();
    given_published(release);
    const Gate gate;
    server_.script(blob_url_path(long_content()), {held_after(come, long_content(), gate)});
    when_started();
    run().wait_for_status(L"Downloading update 1.1...");
    ASSERT_TRUE(gate.wait_until_reached());
    run().wait_for_detail(L"* KB of " + format_size(long_content().size()) + L"*");
    when_cancelled(gesture);
    then_it_ends_and_nothing_happened();
    gate.open();
    then_the_log_says({"manifest: * bytes, signature OK (key primary)", "manifest: version 1.1 serial 2, *",
                       "update to 1.1: 1 files to replace (1 unique, 3000000 bytes, 0 already staged), 0 to remove",
                       "disk: * bytes free, 3000000 needed"});
    const std::vector<std::string> staged = folder().staged();
    ASSERT_EQ(staged.size(), 1U);
    const std::string part = "dl/" + sha256_hex(long_content()) + ".part ";
    ASSERT_TRUE(staged[0].starts_with(part)) << staged[0];
    const std::string size = staged[0].substr(part.size());
    EXPECT_NE(size, "0");

    when_started();
    then_ends(0, launched, "updated to 1.1");
    then_the_log_has(
        {"update to 1.1: 1 files to replace (1 unique, 3000000 bytes, " + size + " already staged), 0 to remove",
         "resuming " + sha256_hex(long_content()) + " at " + size + " of 3000000 bytes"});
    then_requests_are({"manifest.json", "manifest.sig", blob_url_path(long_content()) + " bytes=" + size + "-"});
    then_game_is(files_of(release));
    then_staged_is({});
  }
}

TEST_F(Cancelled, WhileAFirstInstallIsDownloaded) {
  const ReleaseBuilder release = first_release().file("data/long.txt", long_content());
  given_published(release);
  const Gate gate;
  server_.script(blob_url_path(long_content()), {held_after(1'000'000, long_content(), gate)});
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.*"), IDYES);
  run().wait_for_status(L"Downloading KVX 1.0...");
  // The others come whole, and are kept.
  const std::vector<std::string> whole = {staged_blob(game_program()), staged_blob("a of 1.0")};
  ASSERT_TRUE(wait_until([&] { return folder().staged().size() == 3; }));
  ASSERT_TRUE(wait_until([&] { return testing::Value(folder().staged(), testing::IsSupersetOf(whole)); }));
  run().press_cancel();
  then_ends(60, not_launched, "");
  gate.open();
  EXPECT_THAT(folder().staged(), testing::IsSupersetOf(whole));
  then_game_is({});
  then_state_is({});
}

TEST_F(Cancelled, WhileAStagedFileIsReadAgain) {
  constexpr uint64_t big = 20'000'000'000;
  const std::string digest = "c3e5d415e2a12e6a97ad47e0027b1b26894f6f163fbf58f9f11e325322e12a9a";  // of so many zeros
  given_installed(first_release());
  folder().write_zeros(".kvx_patch/blobs/" + digest, big);
  given_published(update_with_a_big_file(big, digest));
  when_started();
  run().wait_for_status(L"Downloading update 1.1...");
  run().wait_for_detail(L"0 bytes of " + format_size(big));
  run().press_cancel();
  then_it_ends_and_nothing_happened();
  // It was not read to its end, or it would be known to be the right one.
  then_the_log_says({"manifest: * bytes, signature OK (key primary)", "manifest: version 1.1 serial 2, *",
                     "update to 1.1: 1 files to replace (1 unique, 20000000000 bytes, 20000000000 already staged), 0 "
                     "to remove",
                     "disk: * bytes free, * needed"});
  then_requests_are({"manifest.json", "manifest.sig"});
  then_staged_is({"blobs/" + digest + " 20000000000"});
}

TEST_F(Cancelled, WhileAPartialFileIsReadAgain) {
  constexpr uint64_t big = 20'000'000'000;
  const std::string digest = "c3e5d415e2a12e6a97ad47e0027b1b26894f6f163fbf58f9f11e325322e12a9a";  // of so many zeros
  const std::string part = "dl/" + digest + ".part";
  given_installed(first_release());
  folder().write_zeros(".kvx_patch/" + part, big);
  given_published(update_with_a_big_file(big, digest));
  when_started();
  run().wait_for_status(L"Downloading update 1.1...");
  when_it_has_logged("disk: *");
  run().press_cancel();
  then_it_ends_and_nothing_happened();
  // It was not read to its end, or it would have become a finished blob.
  then_requests_are({"manifest.json", "manifest.sig"});
  then_staged_is({part + " " + std::to_string(big)});
}

TEST_F(Cancelled, WhileADownloadWaitsToBeTriedAgain) {
  given_installed(first_release());
  given_published(long_update());
  const Gate late;  // for a cancel that comes after the wait
  server_.script(blob_url_path(long_content()),
                 {answer(503), answer(503), answer(503), ScriptedResponse().wait_for(late)});
  when_started();
  const std::string waiting = "download of " + sha256_hex(long_content()) +
                              " interrupted at 0 bytes (the server answered HTTP 503); retrying in ";
  run().wait_until_cancel_is(true);
  when_it_has_logged(waiting + "8000 ms");
  run().press_cancel();
  then_it_ends_and_nothing_happened();
  then_the_log_says({"manifest: * bytes, signature OK (key primary)", "manifest: version 1.1 serial 2, *",
                     "update to 1.1: *", "disk: *", waiting + "2000 ms", waiting + "4000 ms", waiting + "8000 ms"});
  late.open();
  then_staged_is({staged_part(long_content(), 0)});
}

// ---- while an installation that matches is tidied up

TEST_F(Cancelled, WhileFilesLeftOverCannotBeDeleted) {
  given_installed(first_release());
  // Each keeps the run for some seconds.
  std::vector<std::unique_ptr<FileLock>> locks;
  for (const std::string number : {"1", "2", "3", "4", "5", "6", "7", "8"}) {
    folder().write(".kvx_patch/dl/left over " + number, "");
    locks.push_back(std::make_unique<FileLock>(folder().file(".kvx_patch/dl/left over " + number)));
  }
  when_started();
  run().wait_until_cancel_is(true);
  when_it_has_logged("installation matches version 1.0");
  run().press_cancel();
  then_it_ends_and_nothing_happened();
  then_the_log_says({"manifest: * bytes, signature OK (key primary)", "manifest: version 1.0 serial 1, *",
                     "installation matches version 1.0"});
}

// ---- when it is not possible

class CannotBeCancelled : public Cancelled {
 protected:
  // Whatever the player does, the window stays as it is.
  void then_no_gesture_counts() {
    const ProgressWindow window = run().window();
    EXPECT_EQ(IsWindowEnabled(window.cancel_button), 0);
    for (const auto& [message, parameter] :
         {std::pair<UINT, WPARAM>{WM_CLOSE, 0}, {WM_SYSCOMMAND, SC_CLOSE}, {WM_COMMAND, IDCANCEL}, {WM_CLOSE, 0}}) {
      SendMessageW(window.window, message, parameter, 0);
    }
    PostMessageW(window.window, WM_KEYDOWN, VK_ESCAPE, 0);
    EXPECT_EQ(text_of(window.cancel_button), L"Cancel");
  }
};

TEST_F(CannotBeCancelled, BeforeItConnects) {
  given_installed(first_release());
  const PlayerFolder elsewhere;
  copy_test_program(elsewhere.file("other.exe"));
  WaitingProgram other(elsewhere.file("other.exe"));
  when_started(L"--wait-pid=" + std::to_wstring(other.id()));
  run().wait_for_status(L"Starting...");
  then_no_gesture_counts();

  // Meanwhile it holds nothing that another run needs, and does nothing: the log and the requests are of that run
  // alone.
  RunningLauncher meanwhile(folder().launcher(),
                            L"--base-url=" + server_.base_url() + L" --unattended --hidden --no-launch",
                            folder().path());
  EXPECT_EQ(meanwhile.wait_for_end(true), 0U);
  then_requests_are({"manifest.json", "manifest.sig"});
  EXPECT_THAT(folder().log(), testing::Contains("--no-launch: not starting bin/game.exe"));
  EXPECT_THAT(folder().previous_log(), testing::Contains("update to 1.0 complete"));  // of the install
  EXPECT_TRUE(run().runs());
  EXPECT_EQ(text_of(run().window().status_text), L"Starting...");

  other.end();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)", "manifest: version 1.0 serial 1, *",
                     "installation matches version 1.0", "started *"});
  EXPECT_THAT(folder().previous_log(), testing::Contains("--no-launch: not starting bin/game.exe"));
  then_requests_are({"manifest.json", "manifest.sig", "manifest.json", "manifest.sig"});
}

TEST_F(CannotBeCancelled, WhileItWaitsForTheGameToClose) {
  given_installed(first_release());
  const ReleaseBuilder release = long_update();
  given_published(release);
  WaitingProgram game(folder().file("bin/game.exe"));
  when_started();
  static_cast<void>(run().wait_for_prompt());
  EXPECT_EQ(text_of(run().window().status_text), L"Waiting for KVX to close...");
  then_no_gesture_counts();
  game.end();
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(release));
}

TEST_F(CannotBeCancelled, WhileItInstalls) {
  given_installed(first_release());
  const ReleaseBuilder release = long_update();
  given_published(release);
  FileLock lock(folder().file("data/a.txt"));
  when_started();
  run().wait_for_status(L"Installing the update...");
  then_no_gesture_counts();
  static_cast<void>(run().wait_for_prompt());
  then_no_gesture_counts();
  lock.release();
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(release));
}

}  // namespace
}  // namespace kvx::test
