// Runs on a disk that is full, or becomes full, or cannot be written. Needs the disks that small_disk.sh makes.
#include <windows.h>

#include <algorithm>
#include <gtest/gtest.h>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"
#include "tests/support/sha256_hex.h"

namespace kvx::test {
namespace {

constexpr size_t megabyte = 1048576;

std::wstring variable(const wchar_t* name) {
  wchar_t value[MAX_PATH];
  return {value, GetEnvironmentVariableW(name, value, MAX_PATH)};
}

// The player's folder is on the small disk, and so is what fills it.
class SmallDisk : public InBothWays {
 protected:
  SmallDisk() {
    EXPECT_FALSE(disk_.empty()) << "this program is run by small_disk.sh";
    SetEnvironmentVariableW(L"TMP", disk_.c_str());
    static_cast<void>(folder());
  }
  ~SmallDisk() override {
    make_space();
    SetEnvironmentVariableW(L"TMP", temp_.c_str());
  }

  void given_free(uint64_t bytes) const {
    make_space();
    const uint64_t free = free_space(disk_);
    ASSERT_GE(free, bytes);
    for (uint64_t rest = free - bytes, number = 0; rest > 0; ++number) {
      const uint64_t piece = std::min<uint64_t>(rest, 2 * megabyte);  // a file here may not grow without limit
      write_text(filler(number), std::string(piece, 'f'));
      rest -= piece;
    }
    ASSERT_EQ(free_space(disk_), bytes);
  }

  void make_space() const {
    for (uint64_t number = 0; exists(filler(number)); ++number) DeleteFileW(filler(number).c_str());
  }

  [[nodiscard]] std::wstring filler(uint64_t number) const { return disk_ + L"\\filler" + std::to_wstring(number); }

  void given_an_update(const std::string& content) {
    content_ = content;
    given_installed(first_release());
    given_published(next_release(content));
  }

  // The question for space names what the latest line of the log does.
  void then_shows_what_is_free(uint64_t needed) {
    static_cast<void>(run().wait_for_prompt());
    uint64_t free = 0;
    for (const std::string& line : folder().log()) {
      if (line.starts_with("disk: ")) free = std::stoull(line.substr(6));
    }
    EXPECT_LT(free, needed);
    then_shows(disk_space_prompt(needed, free));
  }

  // What the system says about a write beyond the limit of a file.
  [[nodiscard]] uint32_t code_of_writing_too_much() const {
    const std::wstring path = disk_ + L"\\too large";
    const FileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    const std::string piece(megabyte, 't');
    for (size_t written_megabytes = 0; written_megabytes < 8; ++written_megabytes) {
      DWORD written = 0;
      if (WriteFile(file.get(), piece.data(), megabyte, &written, nullptr) == 0) return GetLastError();
    }
    ADD_FAILURE() << "a file may grow without limit";
    return 0;
  }

  // The end of a run whose result found no space, and so is that of the run before.
  void then_ends_without_a_result(int code, const std::string& result_before) {
    EXPECT_EQ(run().wait_for_end(is_silent()), static_cast<uint32_t>(code));
    EXPECT_EQ(folder().result(), result_before);
    EXPECT_FALSE(folder().has(".kvx_patch/last_result.txt.tmp"));
  }

  void then_the_next_run_succeeds() {
    make_space();
    when_started();
    then_ends(0, launched, "updated to 1.1");
    then_game_is(files_of(next_release(content_)));
    then_staged_is({});
  }

  const std::wstring disk_ = variable(L"KVX_SMALL_DISK");
  const std::wstring temp_ = variable(L"TMP");
  std::string content_;
};
KVX_TELL_IN_BOTH_WAYS(SmallDisk);

TEST_P(SmallDisk, ThatIsTooFullIsAskedAboutUntilThereIsSpace) {
  given_an_update(std::string(2 * megabyte, 'n'));
  given_free(megabyte);
  when_started();
  if (is_silent()) {
    then_ends(31, not_launched, "not enough disk space");
    then_game_is(files_of(first_release()));
    then_staged_is({});
    then_state_is(installed_state("1.0", "1"));
    then_the_next_run_succeeds();
    return;
  }
  then_shows_what_is_free(2 * megabyte);
  run().answer(IDRETRY);
  then_shows_what_is_free(2 * megabyte);
  make_space();
  run().answer(IDRETRY);
  then_ends(0, launched, "updated to 1.1");
  const std::string needed = " bytes free, 2097152 needed";
  then_the_log_has({"disk: *" + needed, "disk: *" + needed, "disk: *" + needed, verified_line(content_)});
  then_game_is(files_of(next_release(content_)));
}

TEST_P(SmallDisk, WithLittleMoreThanTheNeededSpaceIsEnough) {
  // The launcher's records need some space too.
  given_an_update(std::string(2 * megabyte, 'n'));
  given_free(2 * megabyte + 64 * 4096);
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(next_release(content_)));
}

TEST_P(SmallDisk, ThatFillsDuringTheDownloadEndsIt) {
  given_an_update(std::string(2 * megabyte, 'n'));
  const std::string result_before = folder().result();
  const Gate gate;
  server_.script(blob_url_path(content_),
                 {ScriptedResponse(status_line(200) + "Connection: close\r\nContent-Length: 2097152\r\n\r\n" +
                                   content_.substr(0, 10000))
                      .wait_for(gate)
                      .then(content_.substr(10000))});
  when_started();
  ASSERT_TRUE(gate.wait_until_reached());
  ASSERT_TRUE(wait_until([this] { return folder().staged() == std::vector{staged_part(content_, 10000)}; }));
  given_free(megabyte);
  gate.open();
  const std::string reason = "the disk is full";
  if (is_silent()) {
    then_ends_without_a_result(31, result_before);
  } else {
    then_shows(download_failed_prompt(reason));
    make_space();
    run().answer(IDOK);
    then_ends(31, not_launched, reason);
  }
  then_the_log_has({"disk: * bytes free, 2097152 needed", "download failed: " + reason});
  then_game_is(files_of(first_release()));
  then_state_is(installed_state("1.0", "1"));
  then_game_was_not_started();
  const std::vector<std::string> staged = folder().staged();
  ASSERT_EQ(staged.size(), 1U);
  const uint64_t kept = std::stoull(staged[0].substr(staged[0].rfind(' ')));
  EXPECT_EQ(staged[0], staged_part(content_, kept));
  EXPECT_GE(kept, megabyte);

  then_the_next_run_succeeds();
  then_requests_are(
      {"manifest.json", "manifest.sig", blob_url_path(content_) + " bytes=" + std::to_string(kept) + "-"});
}

TEST_P(SmallDisk, ThatFillsDuringTheInstallStopsIt) {
  // One blob for three files: the download needs its space once, the install three times.
  content_ = std::string(megabyte, 'n');
  given_installed(first_release());
  const ReleaseBuilder release = next_release(content_).file("data/b.txt", content_).file("data/c.txt", content_);
  given_published(release);
  given_free(megabyte + megabyte / 2);
  const std::string result_before = folder().result();
  const std::string words = error_text(ERROR_DISK_FULL);
  const std::string reason = "could not replace data/a.txt: " + words;
  when_started();
  then_asks(cannot_replace_prompt("data/a.txt", ERROR_DISK_FULL), IDRETRY);
  then_asks(cannot_replace_prompt("data/a.txt", ERROR_DISK_FULL), IDCANCEL);
  if (is_silent()) {
    then_ends_without_a_result(42, result_before);
  } else {
    then_shows(install_failed_prompt(reason));
    make_space();
    run().answer(IDOK);
    then_ends(42, not_launched, reason);
  }
  then_the_log_has(
      {"disk: * bytes free, 1048576 needed", verified_line(content_), "replace data/a.txt failed: " + words});
  EXPECT_EQ(folder().read("data/a.txt"), "a of 1.0");
  then_staged_is({staged_blob(content_)});
  EXPECT_EQ(folder().state()["complete"], "0");

  make_space();
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_requests_are({"manifest.json", "manifest.sig"});
  then_game_is(files_of(release));
  then_staged_is({});
}

TEST_P(SmallDisk, ThatIsFullFromTheStartIsAskedAboutAllTheSame) {
  const ReleaseBuilder release = first_release();
  given_published(release);
  given_free(0);
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n*"), IDYES);
  const uint64_t needed = game_program().size() + 8;
  if (is_silent()) {
    EXPECT_EQ(run().wait_for_end(true), 31U);
    EXPECT_FALSE(folder().has(".kvx_patch/last_result.txt"));
    then_game_is({});
    make_space();
    when_started();
  } else {
    then_asks(disk_space_prompt(needed, 0), IDRETRY);
    then_shows(disk_space_prompt(needed, 0));
    make_space();
    run().answer(IDRETRY);
  }
  then_ends(0, launched, "updated to 1.0");
  then_game_is(files_of(release));
  then_state_is(installed_state("1.0", "1"));
}

TEST_P(SmallDisk, ThatTakesNoLargerFileEndsTheDownload) {
  given_an_update(std::string(4 * megabyte + 1, 'n'));
  const std::string reason = "cannot write a downloaded file: " + error_text(code_of_writing_too_much());
  when_started();
  then_asks(download_failed_prompt(reason), IDOK);
  then_ends(30, not_launched, reason);
  then_game_is(files_of(first_release()));
  then_staged_is({staged_part(content_, 4 * megabyte)});
  then_state_is(installed_state("1.0", "1"));
}

// ---- 42: a disk that cannot be written

class ReadOnlyDisk : public InBothWays {};
KVX_TELL_IN_BOTH_WAYS(ReadOnlyDisk);

TEST_P(ReadOnlyDisk, IsRefused) {
  const std::wstring disk = variable(L"KVX_READ_ONLY_DISK");
  ASSERT_FALSE(disk.empty()) << "this program is run by small_disk.sh";
  when_started_through(disk + L"\\KVXLauncher.exe", disk);
  then_asks(error_prompt(L"KVX cannot be installed or updated in this folder because it is not writable:\n" + disk +
                         L"\n\nPlease move KVXLauncher.exe into a folder where you can save files (for example "
                         L"Documents\\KVX) and start it again."),
            IDOK);
  EXPECT_EQ(run().wait_for_end(is_silent()), 42U);
  EXPECT_EQ(list_folder(disk), std::vector<std::wstring>{L"KVXLauncher.exe"});
  then_requests_are({});
}

}  // namespace
}  // namespace kvx::test
