// Install folders and launcher names as players have them, and the ways to start a launcher.
#include <windows.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <utility>

#include "foundations/display_format.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"

namespace kvx::test {
namespace {

Prompt first_question(const std::wstring& place) {
  const std::wstring size = format_size(test_program_bytes().size() + 8);
  return question_prompt(L"KVX is not installed in this folder yet.\n\nInstall KVX 1.0 into:\n" + place +
                         L"\n\nDownload: " + size + L"\nFree disk space needed: " + size + L"\n\nContinue?");
}

// ---- folders and names

struct Place {
  std::string name;
  std::wstring launcher;
  std::wstring folder;  // below the test's own
};

void PrintTo(const Place& place, std::ostream* out) { *out << place.name; }

const Place places[] = {
    {"Blanks", L"KVXLauncher.exe", L"My Games\\KVX  Gold Edition"},
    {"Apostrophes", L"KVXLauncher.exe", L"O'Brien's `Games`"},
    {"Signs", L"KVXLauncher.exe", L"100% [KVX] (1) & {2} #3 +a=b;c,d!@^~$"},
    {"OtherLetters", L"KVXLauncher.exe", L"\u00DCml\u00E4ut\\\u540D\u524D\\\u0418\u0433\u0440\u044B"},
    {"Emoji", L"KVXLauncher.exe", L"\U0001F3AE"},
    {"Dots", L"KVXLauncher.exe", L".games\\v1.0.exe"},
    {"NameWithBlanks", L"Start KVX (new).exe", L"KVX"},
    {"NameInOtherLetters", L"\u540D\u524D.exe", L"KVX"},
    {"NameInUpperCase", L"KVXLAUNCHER.EXE", L"KVX"},
    {"NameOfTheNewLauncher", L"KVXLauncher2.new.exe", L"KVX"},
    {"NameWithAnotherEnding", L"KVXLauncher.exe.bak.exe", L"KVX"},
};

class OddPlace : public TableInBothWays<Place> {};
KVX_TELL_ROWS_IN_BOTH_WAYS(OddPlace, places);

TEST_P(OddPlace, IsInstalledIntoUpdatedAndStartedFrom) {
  use_folder(std::make_unique<PlayerFolder>(row().launcher, row().folder));
  const ReleaseBuilder first = first_release().arg("an argument");
  given_published(first);
  when_started();
  then_asks(first_question(folder().path()), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_game_is(files_of(first));
  then_game_was_started_with({"an argument"});

  const ReleaseBuilder second = next_release("a of 1.1").remove("data/b.txt");
  given_published(second);
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.1 serial 2, 2 files, 1 removals, exe bin/game.exe",
                     "update to 1.1: 1 files to replace (1 unique, 8 bytes, 0 already staged), 0 to remove",
                     "disk: * bytes free, 8 needed", verified_line("a of 1.1"), "update to 1.1 complete",
                     "started " + to_utf8(folder().file("bin/game.exe")) + " (pid *)"});
  then_game_is(files_of(second));
  then_game_was_started_with({});
}

TEST_P(OddPlace, IsRecognizedInTheProgramThatRunsThere) {
  use_folder(std::make_unique<PlayerFolder>(row().launcher, row().folder));
  given_installed(first_release());
  given_published(next_release());
  const std::wstring program = folder().file("bin/game.exe");
  const WaitingProgram game(program);
  when_started();
  then_asks(still_running_prompt(program), IDCANCEL);
  then_ends(40, not_launched, "KVX is running");
}

// ---- paths beyond the classic limit

// The programs themselves can just be started, but what the launcher keeps and most of what it installs lies deeper.
class LongPlace : public InBothWays {
 protected:
  LongPlace() {
    constexpr size_t longest_folder = 240;
    const TempFolder of_the_same_length;
    std::wstring below(longest_folder - of_the_same_length.path().size() - 1, L'n');
    for (size_t i = 50; i < below.size() - 1; i += 50) below[i] = L'\\';
    use_folder(std::make_unique<PlayerFolder>(L"KVXLauncher.exe", below));
    EXPECT_LT(folder().launcher().size(), size_t{MAX_PATH});
    EXPECT_GT(folder().file(".kvx_patch/hashcache.txt").size(), size_t{MAX_PATH});
  }

  const std::string deep_ = "data/" + std::string(60, 'd') + "/" + std::string(60, 'e');
};
KVX_TELL_IN_BOTH_WAYS(LongPlace);

TEST_P(LongPlace, IsInstalledIntoUpdatedAndStartedFrom) {
  const ReleaseBuilder first = first_release();
  given_published(first);
  when_started();
  then_asks(first_question(folder().path()), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_game_is(files_of(first));
  then_game_was_started_with({});

  const ReleaseBuilder second = next_release("a of 1.1").file(deep_, "a of 1.1");
  given_published(second);
  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.1 serial 2, 3 files, 0 removals, exe bin/game.exe",
                     "update to 1.1: 2 files to replace (1 unique, 8 bytes, 0 already staged), 0 to remove",
                     "disk: * bytes free, 8 needed", verified_line("a of 1.1"), "update to 1.1 complete",
                     "started " + to_utf8(folder().file("bin/game.exe")) + " (pid *)"});
  then_game_is(files_of(second));
  then_state_is(installed_state("1.1", "2"));

  given_published(next_release("a of 1.1").version("1.2").serial(3).remove(deep_));
  when_started(L"--repair");
  then_ends(0, launched, "updated to 1.2");
  then_the_log_has({"checking 2 installed files (* bytes)", "removed " + deep_});
  EXPECT_FALSE(folder().has(deep_));
  when_started();
  then_ends(0, launched, "up to date 1.2");
  then_the_log_lacks("checking *");
}

TEST_P(LongPlace, IsRecognizedInTheProgramThatRunsThere) {
  given_installed(first_release());
  given_published(next_release());
  const std::wstring program = folder().file("bin/game.exe");
  const WaitingProgram game(program);
  when_started();
  then_asks(still_running_prompt(program), IDCANCEL);
  then_ends(40, not_launched, "KVX is running");
}

// ---- ways to start the launcher

class OddStart : public InBothWays {
 protected:
  void then_it_is_up_to_date() {
    then_ends(0, launched, "up to date 1.0");
    then_game_was_started_with({});
  }
};
KVX_TELL_IN_BOTH_WAYS(OddStart);

TEST_P(OddStart, ThroughTheLongFormOfThePathIsTheSame) {
  given_installed(first_release());
  when_started_through(LR"(\\?\)" + folder().launcher(), folder().path());
  then_it_is_up_to_date();
  then_the_log_says({"manifest: * bytes, signature OK (key primary)",
                     "manifest: version 1.0 serial 1, 2 files, 0 removals, exe bin/game.exe",
                     "installation matches version 1.0",
                     "started " + to_utf8(folder().file("bin/game.exe")) + " (pid *)"});
}

TEST_P(OddStart, FromAnotherWorkingFolderIsTheSame) {
  given_installed(first_release());
  const TempFolder elsewhere;
  when_started_through(folder().launcher(), elsewhere.path());
  then_it_is_up_to_date();
  EXPECT_FALSE(exists(elsewhere / L".kvx_patch"));
}

TEST_P(OddStart, ThroughADetourIsTheSame) {
  given_installed(first_release());
  when_started_through(folder().path() + LR"(\bin\..\.\)" + folder().launcher_name(), folder().path());
  then_it_is_up_to_date();
}

TEST_P(OddStart, InOtherLetterCaseIsTheSame) {
  given_installed(first_release());
  std::wstring program = folder().launcher();
  for (wchar_t& c : program) c = static_cast<wchar_t>(c >= L'a' && c <= L'z' ? c - L'a' + L'A' : c);
  when_started_through(program, folder().path());
  then_ends(0, launched, "up to date 1.0");

  // And a program that runs is recognized although its path was given otherwise.
  given_published(next_release());
  const WaitingProgram game(folder().file("bin/game.exe"));
  when_started_through(program, folder().path());
  then_asks(still_running_prompt(folder().file("bin/game.exe")), IDCANCEL);
  then_ends(40, not_launched, "KVX is running");
}

TEST_P(OddStart, WithSlashesIsTheSame) {
  given_installed(first_release());
  std::wstring program = folder().launcher();
  std::replace(program.begin(), program.end(), L'\\', L'/');
  when_started_through(program, folder().path());
  then_it_is_up_to_date();
}

// ---- the root of a drive

// A drive letter for a folder. Both ways of a story may run at the same time, so each has a letter of its own.
class DriveLetter {
 public:
  DriveLetter(std::wstring drive, const std::wstring& folder) : drive_(std::move(drive)) {
    const auto unix_name = reinterpret_cast<UnixName>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    if (unix_name == nullptr) {
      EXPECT_TRUE(DefineDosDeviceW(0, drive_.c_str(), folder.c_str())) << "error " << GetLastError();
    } else {
      // Wine opens no file of a drive that was defined so; it takes a link in its prefix.
      run_unix_program(L"ln", L"-sfn \"" + to_wide(unix_name(folder.c_str())) + L"\" \"" + link() + L"\"");
      is_link_ = true;
    }
    EXPECT_TRUE(wait_until([this] { return exists(drive_ + L"\\"); })) << to_utf8(drive_) << " did not come up";
  }
  DriveLetter(const DriveLetter&) = delete;
  DriveLetter& operator=(const DriveLetter&) = delete;
  ~DriveLetter() {
    if (is_link_) {
      run_unix_program(L"rm", L"-f \"" + link() + L"\"");
    } else {
      DefineDosDeviceW(DDD_REMOVE_DEFINITION, drive_.c_str(), nullptr);
    }
    EXPECT_TRUE(wait_until([this] { return !exists(drive_ + L"\\"); })) << to_utf8(drive_) << " did not go";
  }

 private:
  using UnixName = char*(CDECL*)(LPCWSTR);

  [[nodiscard]] std::wstring link() const {
    wchar_t prefix[MAX_PATH];
    const DWORD length = GetEnvironmentVariableW(L"WINEPREFIX", prefix, MAX_PATH);
    return std::wstring(prefix, length) + L"/dosdevices/" + to_wide(to_lower_ascii(to_utf8(drive_)));
  }

  // There is no handle to wait for.
  static void run_unix_program(const std::wstring& name, const std::wstring& arguments) {
    std::wstring command_line = name + L" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    EXPECT_TRUE(CreateProcessW((L"Z:\\bin\\" + name).c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                               nullptr, &startup, &started))
        << to_utf8(name) << " did not start: error " << GetLastError();
  }

  std::wstring drive_;
  bool is_link_ = false;
};

class DriveRoot : public InBothWays {
 protected:
  [[nodiscard]] std::wstring drive() const { return is_silent() ? L"R:" : L"Q:"; }
};
KVX_TELL_IN_BOTH_WAYS(DriveRoot);

TEST_P(DriveRoot, IsInstalledIntoUpdatedAndStartedFrom) {
  const DriveLetter letter(drive(), folder().path());
  const std::wstring program = drive() + L"\\KVXLauncher.exe";
  const std::string root = to_utf8(drive());
  given_published(first_release());
  when_started_through(program, L"C:\\");
  then_asks(first_question(drive()), IDYES);
  then_ends(0, launched, "updated to 1.0");
  then_the_log_has({"KVXLAUNCHER-VERSION:1.0.0; install=\"" + root + "\" self=\"KVXLauncher.exe\"",
                    "update to 1.0 complete", "started " + root + "\\bin\\game.exe (pid *)"});
  then_game_is(files_of(first_release()));
  ASSERT_TRUE(wait_until([this] { return folder().has("started.txt"); }));
  EXPECT_TRUE(folder().read("started.txt").starts_with("directory=" + root + "\\\n")) << folder().read("started.txt");

  given_published(next_release());
  {
    const WaitingProgram game(drive() + L"\\bin\\game.exe");
    when_started_through(program, drive() + L"\\");
    then_asks(still_running_prompt(drive() + L"\\bin\\game.exe"), IDCANCEL);
    then_ends(40, not_launched, "KVX is running");
  }
  when_started_through(program, drive() + L"\\bin");
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(next_release()));
  then_state_is(installed_state("1.1", "2"));
}

}  // namespace
}  // namespace kvx::test
