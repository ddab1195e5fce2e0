// Downloads that fail, that heal, and that go on where an earlier run stopped; runs that lack disk space.
#include <windows.h>

#include <algorithm>
#include <gtest/gtest.h>

#include "foundations/error_text.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"

namespace kvx::test {
namespace {

constexpr char closed_early[] = "the connection closed before the download finished";

// What the log says before the download of next_release, of whose new content so much is there already.
std::vector<std::string> lines_before_download(const std::string& content, uint64_t staged = 0) {
  return {"manifest: * bytes, signature OK (key primary)",
          "manifest: version 1.1 serial 2, 2 files, 0 removals, exe bin/game.exe",
          "update to 1.1: 1 files to replace (1 unique, " + std::to_string(content.size()) + " bytes, " +
              std::to_string(staged) + " already staged), 0 to remove",
          "disk: * bytes free, " + std::to_string(content.size() - staged) + " needed"};
}

std::string content_range(size_t start, const std::string& content) {
  const std::string size = std::to_string(content.size());
  return "Content-Range: bytes " + std::to_string(start) + "-" + std::to_string(content.size() - 1) + "/" + size +
         "\r\n";
}

// The answer to a request for the bytes from `start` on, whose connection ends before byte `end`.
ScriptedResponse piece(const std::string& content, size_t start, size_t end) {
  const std::string bytes = content.substr(start, end - start);
  return start == 0 ? answer_without_length(200, bytes)
                    : answer_without_length(206, bytes, content_range(start, content));
}

class Download : public InBothWays {
 protected:
  // Version 1.0 is installed, and 1.1 is published, whose data/a.txt has this content.
  void given_an_update(const std::string& content) {
    content_ = content;
    blob_ = blob_url_path(content);
    given_installed(first_release());
    given_published(next_release(content));
  }
  void given_an_update() { given_an_update(std::string(100, 'n')); }

  [[nodiscard]] std::string part_name() const { return ".kvx_patch/dl/" + sha256_hex(content_) + ".part"; }
  [[nodiscard]] std::string blob_name() const { return ".kvx_patch/blobs/" + sha256_hex(content_); }

  void then_the_log_of_the_download_is(std::vector<std::string> lines, uint64_t staged = 0) const {
    const std::vector<std::string> before = lines_before_download(content_, staged);
    lines.insert(lines.begin(), before.begin(), before.end());
    then_the_log_says(lines);
  }

  // Says the reason, and leaves the game as it was; `lines` is the log of the download.
  void then_it_fails(const std::string& reason, std::vector<std::string> lines = {}, uint64_t staged = 0) {
    then_asks(download_failed_prompt(reason), IDOK);
    then_ends(30, not_launched, reason);
    lines.push_back("download failed: " + reason);
    then_the_log_of_the_download_is(lines, staged);
    then_game_is(files_of(first_release()));
    then_state_is(installed_state("1.0", "1"));
    then_game_was_not_started();
  }

  void then_it_succeeds() {
    then_ends(0, launched, "updated to 1.1");
    then_game_is(files_of(next_release(content_)));
    then_staged_is({});
    then_state_is(installed_state("1.1", "2"));
    then_game_was_started_with({});
  }

  // As then_requests_are, for what follows the manifest and its signature.
  void then_blob_requests_are(std::vector<std::string> requests) const {
    requests.insert(requests.begin(), {"manifest.json", "manifest.sig"});
    then_requests_are(requests);
  }

  std::string content_;
  std::string blob_;
};
KVX_TELL_IN_BOTH_WAYS(Download);

TEST_P(Download, OfAFileThatTheServerLacksFailsAtOnceUntilItIsThere) {
  given_an_update();
  for (const int status : {403, 404, 410}) {
    server_.script(blob_, {answer(status)});
    when_started();
    then_it_fails("a required file is missing on the update server (HTTP " + std::to_string(status) + ")");
    then_blob_requests_are({blob_});
    then_staged_is({staged_part(content_, 0)});
  }
  when_started();
  then_it_succeeds();
}

TEST_P(Download, OfAFirstInstallFailsAndLeavesTheFolderEmpty) {
  const ReleaseBuilder release = first_release();
  given_published(release);
  server_.script(blob_url_path("a of 1.0"), {answer(404)});
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"), IDYES);
  const std::string reason = "a required file is missing on the update server (HTTP 404)";
  then_asks(download_failed_prompt(reason), IDOK);
  then_ends(30, not_launched, reason);
  then_game_is({});
  then_state_is({});

  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_game_is(files_of(release));
}

TEST_P(Download, OfOneFileThatTheServerLacksStopsTheOthers) {
  given_installed(first_release());
  const std::string unavailable(4000, 'u');
  const std::string missing(3000, 'm');
  const std::string whole(2000, 'w');
  const std::string unavailable_too(1500, 'v');
  const std::string last(1000, 'l');
  const ReleaseBuilder release = next_release(missing)
                                     .file("data/u", unavailable)
                                     .file("data/w", whole)
                                     .file("data/v", unavailable_too)
                                     .file("data/l", last);
  given_published(release);
  // Three are fetched at a time: one is there at once, two are waited for while the missing one is refused.
  const Gate refusal;
  const ScriptedResponse busy = answer(503);
  server_.script(blob_url_path(unavailable), {busy, busy, busy});
  server_.script(blob_url_path(unavailable_too), {busy, busy, busy});
  server_.script(blob_url_path(missing), {ScriptedResponse().wait_for(refusal).then(status_line(404) + "\r\n")});
  when_started();
  ASSERT_TRUE(refusal.wait_until_reached());
  const auto logged = [this](const std::string& line) {
    const std::vector<std::string> log = folder().log_so_far();
    return std::find(log.begin(), log.end(), line) != log.end();
  };
  const std::string http_503 = "the server answered HTTP 503";
  ASSERT_TRUE(wait_until([&] {
    return logged(verified_line(whole)) && logged(interrupted_line(unavailable, 0, http_503, 2000)) &&
           logged(interrupted_line(unavailable_too, 0, http_503, 2000));
  }));
  refusal.open();
  const std::string reason = "a required file is missing on the update server (HTTP 404)";
  then_asks(download_failed_prompt(reason), IDOK);
  then_ends(30, not_launched, reason);
  then_the_log_lacks("*cancelled*");
  EXPECT_TRUE(server_.requests_for(blob_url_path(last)).empty()) << "a further download began";
  then_game_is(files_of(first_release()));
  then_staged_is(
      {staged_blob(whole), staged_part(unavailable, 0), staged_part(unavailable_too, 0), staged_part(missing, 0)});

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_has({"update to 1.1: 5 files to replace (5 unique, 11500 bytes, 2000 already staged), 0 to remove",
                    "disk: * bytes free, 9500 needed", already_staged_line(whole)});
  EXPECT_EQ(server_.requests_for(blob_url_path(whole)).size(), 1U);
  then_game_is(files_of(release));
}

TEST_P(Download, FromAServerThatRejectsEveryPositionFailsAtTheNinth) {
  given_an_update();
  server_.script(blob_, std::vector<ScriptedResponse>(9, answer(416)));
  folder().write(part_name(), content_.substr(0, 10));
  when_started();
  std::vector<std::string> lines(9, restarting_line(content_, "HTTP 416"));
  lines.insert(lines.begin(), resuming_line(content_, 10));
  then_it_fails("the server does not allow resuming downloads", lines, 10);
  std::vector<std::string> requests(9, blob_);
  requests[0] += " bytes=10-";
  then_blob_requests_are(requests);
  then_staged_is({});

  when_started();
  then_it_succeeds();
}

TEST_P(Download, FromAServerThatIgnoresPositionsStartsAgain) {
  given_an_update();
  server_.serve(blob_, content_, Ranges::ignored);
  folder().write(part_name(), content_.substr(0, 10));
  when_started();
  then_it_succeeds();
  then_blob_requests_are({blob_ + " bytes=10-", blob_});
  then_the_log_of_the_download_is({resuming_line(content_, 10), restarting_line(content_, "range ignored"),
                                   verified_line(content_), "update to 1.1 complete", "started *"},
                                  10);
}

TEST_P(Download, FailsAtTheThirdAnswerThatContradictsTheRelease) {
  given_an_update();
  server_.script(blob_, {answer(200, "too short"), answer(206, content_, content_range(0, content_)),
                         answer_without_length(200, content_ + "and more")});
  when_started();
  then_it_fails(
      "the server sent more data than expected",
      {interrupted_line(content_, 0, "the server reports a different file size (9 instead of 100 bytes)", 2000),
       interrupted_line(content_, 0, "unexpected partial response", 4000)});
  then_blob_requests_are({blob_, blob_, blob_});
  then_staged_is({staged_part(content_, 0)});

  when_started();
  then_it_succeeds();
}

TEST_P(Download, FailsAtTheThirdContinuationThatContradictsTheRelease) {
  given_an_update();
  folder().write(part_name(), content_.substr(0, 10));
  const std::string rest = content_.substr(10);
  server_.script(blob_, {answer(206, rest), answer(206, rest, content_range(11, content_)),
                         answer(206, rest, "Content-Range: bytes 10-99/101\r\n")});
  when_started();
  const std::string reason = "the server returned an unexpected byte range";
  then_it_fails(
      reason,
      {resuming_line(content_, 10), interrupted_line(content_, 10, "partial response without Content-Range", 2000),
       resuming_line(content_, 10), interrupted_line(content_, 10, reason, 4000), resuming_line(content_, 10)},
      10);
  then_staged_is({staged_part(content_, 10)});

  when_started();
  then_it_succeeds();
  then_blob_requests_are({blob_ + " bytes=10-"});
}

TEST_P(Download, ThatIsInterruptedGoesOnWhereItStopped) {
  given_an_update();
  server_.script(blob_, {piece(content_, 0, 10), answer(500), piece(content_, 10, 30)});
  when_started();
  then_it_succeeds();
  then_blob_requests_are({blob_, blob_ + " bytes=10-", blob_ + " bytes=10-", blob_ + " bytes=30-"});
  then_the_log_of_the_download_is({interrupted_line(content_, 10, closed_early, 1000), resuming_line(content_, 10),
                                   interrupted_line(content_, 10, "the server answered HTTP 500", 2000),
                                   resuming_line(content_, 10), interrupted_line(content_, 30, closed_early, 1000),
                                   resuming_line(content_, 30), verified_line(content_), "update to 1.1 complete",
                                   "started *"});
}

TEST_P(Download, WhoseConnectionIsResetGoesOnWhereItStopped) {
  given_an_update();
  const auto part_has_arrived = [this] {
    EXPECT_TRUE(wait_until([this] { return folder().staged() == std::vector{staged_part(content_, 30)}; }));
  };
  server_.script(blob_, {piece(content_, 0, 30).call(part_has_arrived).reset()});
  when_started();
  then_it_succeeds();
  then_blob_requests_are({blob_, blob_ + " bytes=30-"});
  then_the_log_of_the_download_is({interrupted_line(content_, 30, "*", 1000), resuming_line(content_, 30),
                                   verified_line(content_), "update to 1.1 complete", "started *"});
}

TEST_P(Download, ThatIsDamagedOnceIsRepeated) {
  given_an_update();
  const std::string damaged(content_.size(), 'x');
  server_.script(blob_, {answer(200, damaged)});
  when_started();
  then_it_succeeds();
  then_blob_requests_are({blob_, blob_});
  then_the_log_of_the_download_is(
      {integrity_failure_line(content_, damaged), verified_line(content_), "update to 1.1 complete", "started *"});
}

TEST_P(Download, ThatIsDamagedTwiceFails) {
  given_an_update();
  const std::string damaged(content_.size(), 'x');
  const std::string damaged_otherwise(content_.size(), 'y');
  server_.script(blob_, {answer(200, damaged), answer(200, damaged_otherwise)});
  when_started();
  then_it_fails("a downloaded file failed the integrity check (" + sha256_hex(content_).substr(0, 16) +
                    "...). The file on the server is damaged or was modified",
                {integrity_failure_line(content_, damaged), integrity_failure_line(content_, damaged_otherwise)});
  then_blob_requests_are({blob_, blob_});
  then_staged_is({});

  when_started();
  then_it_succeeds();
}

TEST_P(Download, WhoseFileCannotBeMadeFailsWithoutARequest) {
  given_an_update();
  const std::wstring part = folder().file(part_name());
  const auto fails_with = [this](uint32_t code) {
    when_started();
    then_it_fails("cannot create a download file: " + error_text(code), {}, 0);
    then_blob_requests_are({});
  };
  folder().write(part_name() + "/in the way.txt", "a folder of that name");
  fails_with(ERROR_ACCESS_DENIED);
  then_staged_is({"dl/" + sha256_hex(content_) + ".part/"});

  remove_tree(in_folder(L".kvx_patch\\dl"));
  folder().write(".kvx_patch/dl", "a file of the name of the folder");
  fails_with(ERROR_PATH_NOT_FOUND);
  DeleteFileW(in_folder(L".kvx_patch\\dl").c_str());

  write_text(part, "");
  FileLock held(part, FILE_SHARE_READ);
  fails_with(ERROR_SHARING_VIOLATION);
  then_staged_is({staged_part(content_, 0)});
  held.release();

  when_started();
  then_it_succeeds();
}

TEST_P(Download, ThatCannotBeStoredKeepsItsBytesForTheNextRun) {
  given_an_update();
  folder().write(blob_name() + "/in the way.txt", "a folder of that name");
  when_started();
  then_it_fails("cannot store a downloaded file: " + error_text(ERROR_ACCESS_DENIED));
  then_staged_is({"blobs/" + sha256_hex(content_) + "/", staged_part(content_, content_.size())});

  remove_tree(folder().file(blob_name()));
  when_started();
  then_it_succeeds();
  then_blob_requests_are({});
  then_the_log_of_the_download_is(
      {resuming_line(content_, 100), verified_line(content_), "update to 1.1 complete", "started *"}, 100);
}

// What lies in the staging folders before a run, and what the run makes of it.
struct Leftover {
  const char* name;
  std::string part;
  std::string blob;
  uint64_t counted;                   // as staged already
  std::vector<std::string> requests;  // the position, or nothing for the whole
  std::vector<std::string> (*log)(const std::string& content);
};

TEST_P(Download, UsesWhatAnEarlierRunLeftOrThrowsItAway) {
  const std::string content(100, 'n');
  const std::string none = "(none)";
  using Lines = std::vector<std::string>;
  const std::vector<Leftover> leftovers = {
      {"a beginning",
       content.substr(0, 10),
       none,
       10,
       {" bytes=10-"},
       [](const std::string& c) {
         return Lines{resuming_line(c, 10), verified_line(c)};
       }},
      {"all bytes",
       content,
       none,
       100,
       {},
       [](const std::string& c) {
         return Lines{resuming_line(c, 100), verified_line(c)};
       }},
      {"too many bytes", content + "x", none, 0, {""}, [](const std::string& c) { return Lines{verified_line(c)}; }},
      {"a wrong beginning",
       "xxxxx",
       none,
       5,
       {" bytes=5-", ""},
       [](const std::string& c) {
         return Lines{resuming_line(c, 5), integrity_failure_line(c, "xxxxx" + c.substr(5)), verified_line(c)};
       }},
      {"a finished blob", none, content, 100, {}, [](const std::string& c) { return Lines{already_staged_line(c)}; }},
      {"a damaged blob",
       none,
       std::string(100, 'x'),
       100,
       {""},
       [](const std::string& c) { return Lines{verified_line(c)}; }},
      {"half a blob",
       none,
       content.substr(0, 50),
       0,
       {""},
       [](const std::string& c) { return Lines{verified_line(c)}; }},
  };
  for (const Leftover& leftover : leftovers) {
    SCOPED_TRACE(leftover.name);
    use_folder(std::make_unique<PlayerFolder>());
    given_an_update(content);
    if (leftover.part != none) folder().write(part_name(), leftover.part);
    if (leftover.blob != none) folder().write(blob_name(), leftover.blob);
    when_started();
    then_it_succeeds();
    Lines requests = leftover.requests;
    for (std::string& request : requests) request.insert(0, blob_);
    then_blob_requests_are(requests);
    Lines lines = leftover.log(content);
    lines.insert(lines.end(), {"update to 1.1 complete", "started *"});
    then_the_log_of_the_download_is(lines, leftover.counted);
  }
}

// ---- disk space

constexpr uint64_t more_than_any_disk = uint64_t{1} << 60;

class DiskSpace : public Download {
 protected:
  // What the latest line of the log names as free.
  [[nodiscard]] uint64_t logged_free() const {
    uint64_t free = 0;
    for (const std::string& line : folder().log()) {
      if (line.starts_with("disk: ")) free = std::stoull(line.substr(6));
    }
    return free;
  }

  [[nodiscard]] size_t measurements() const {
    const std::vector<std::string> log = folder().log();
    return static_cast<size_t>(
        std::count_if(log.begin(), log.end(), [](const std::string& line) { return line.starts_with("disk: "); }));
  }
};
KVX_TELL_IN_BOTH_WAYS(DiskSpace);

TEST_P(DiskSpace, ThatIsNotThereEndsTheRunBeforeItsDownload) {
  given_installed(first_release());
  const std::string content(100, 'n');
  given_published(next_release(content).min_free_disk(more_than_any_disk));
  folder().write(".kvx_patch/dl/" + sha256_hex(content) + ".part", content.substr(0, 10));
  const uint64_t needed = more_than_any_disk + 90;
  when_started();
  for (size_t round = 1; !is_silent() && round <= 3; ++round) {
    static_cast<void>(run().wait_for_prompt());
    EXPECT_EQ(measurements(), round);
    then_shows(disk_space_prompt(needed, logged_free()));
    run().answer(round < 3 ? IDRETRY : IDCANCEL);
  }
  then_ends(31, not_launched, "not enough disk space");
  std::vector<std::string> lines = {
      "manifest: * bytes, signature OK (key primary)",
      "manifest: version 1.1 serial 2, 2 files, 0 removals, exe bin/game.exe",
      "update to 1.1: 1 files to replace (1 unique, 100 bytes, 10 already staged), 0 to remove"};
  lines.insert(lines.end(), is_silent() ? 1 : 3, "disk: * bytes free, " + std::to_string(needed) + " needed");
  then_the_log_says(lines);
  then_requests_are({"manifest.json", "manifest.sig"});
  then_game_is(files_of(first_release()));
  then_staged_is({staged_part(content, 10)});
  then_state_is(installed_state("1.0", "1"));
  then_game_was_not_started();
}

TEST_P(DiskSpace, ThatIsNotThereEndsAFirstInstallAfterItsQuestion) {
  given_published(first_release().min_free_disk(more_than_any_disk));
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"
                            L"\nFree disk space needed: 1073741824.00 GB\n\nContinue?"),
            IDYES);
  then_asks(retry_prompt(L"Not enough free disk space for the update.\n\nNeeded: 1073741824.00 GB\nAvailable: *"
                         L"\n\nFree some space, then press Retry."),
            IDCANCEL);
  then_ends(31, not_launched, "not enough disk space");
  then_game_is({});
  then_staged_is({});
  then_state_is({});
}

}  // namespace
}  // namespace kvx::test
