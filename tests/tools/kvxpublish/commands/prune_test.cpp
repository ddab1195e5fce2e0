#include "tools/kvxpublish/commands/prune.h"

#include <windows.h>

#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "manifest/manifest_limits.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"
#include "tests/tools/kvxpublish/support/folder_tree.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr uint64_t minute = 600000000;  // 100 ns units
constexpr uint64_t day = 864000000000;

uint64_t now() {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

// Serials 1 to 4 on "live", each with a file of its own; one release with its own file on "test".
class Prune : public testing::Test {
 protected:
  void SetUp() override {
    for (const std::string serial : {"1", "2", "3", "4"}) {
      write_text(site_.game(L"own"), "own of " + serial);
      ASSERT_EQ(site_.pack({"--serial=" + serial, "--version=" + serial}).code, 0);
    }
    write_text(site_.game(L"own"), "own of test");
    ASSERT_EQ(site_.pack({"--channel=test"}).code, 0);
  }

  [[nodiscard]] CommandResult prune(const std::string& keep, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"prune", folder_, "--keep", keep});
    return kvxpublish(options);
  }

  [[nodiscard]] FolderTree tree() const { return folder_tree(to_wide(folder_)); }
  [[nodiscard]] uint64_t size_of(const std::string& name) const {
    FileStamp stamp;
    EXPECT_TRUE(file_stamp(site_.site(to_wide(name)), stamp)) << name;
    return stamp.size;
  }
  [[nodiscard]] std::string line(const std::string& list, const std::string& name) const {
    std::string path = name;
    std::ranges::replace(path, '/', '\\');
    return list + "=" + name + "\t" + std::to_string(size_of(path)) + "\n";
  }
  static std::string content_name(const std::string& text) { return "files/" + sha256_hex(text); }
  [[nodiscard]] bool has_content(const std::string& text) const {
    return exists(site_.site(L"files\\" + to_wide(sha256_hex(text))));
  }

  PublishSite site_;
  std::string folder_ = site_.site_folder();
};

TEST_F(Prune, ListsAndCountsWhatItWouldDelete) {
  const FolderTree before = tree();
  const CommandResult result = prune("2");
  EXPECT_EQ(result.code, 0) << result.messages;
  std::vector<std::string> unneeded = {content_name("own of 1"), content_name("own of 2")};
  std::ranges::sort(unneeded);
  uint64_t bytes = 16;
  for (const char* name : {"1.json", "1.sig", "2.json", "2.sig"})
    bytes += size_of(std::string("history\\live\\") + name);
  EXPECT_EQ(result.data, line("history", "history/live/1.json") + line("history", "history/live/1.sig") +
                             line("history", "history/live/2.json") + line("history", "history/live/2.sig") +
                             line("content", unneeded[0]) + line("content", unneeded[1]) +
                             "kept_releases=3\nkept_content=5\nhistory_files=4\ncontent_files=2\ntemporary_files=0\n"
                             "bytes=" +
                             std::to_string(bytes) + "\ndeleted=no\n");
  EXPECT_EQ(result.messages,
            "note: nothing was deleted yet\nnext: kvxpublish prune \"" + folder_ + "\" --keep 2 --yes\n");
  EXPECT_EQ(tree(), before);
}

TEST_F(Prune, DeletesExactlyThatWhenTold) {
  FolderTree expected = tree();
  for (const std::wstring name :
       {L"history\\live\\1.json", L"history\\live\\1.sig", L"history\\live\\2.json", L"history\\live\\2.sig"}) {
    EXPECT_EQ(expected.erase(name), 1U);
  }
  for (const std::string text : {"own of 1", "own of 2"}) {
    EXPECT_EQ(expected.erase(L"files\\" + to_wide(sha256_hex(text))), 1U);
  }
  const std::string listed = prune("2").data;
  const CommandResult result = prune("2", {"--yes"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data, listed.substr(0, listed.find("deleted=")) + "deleted=yes\n");
  EXPECT_THAT(result.messages, IsEmpty());
  EXPECT_EQ(tree(), expected);
  for (const char* channel : {"live", "test"}) {
    EXPECT_EQ(kvxpublish({"verify", folder_, "--full", std::string("--channel=") + channel}).code, 0);
  }
}

TEST_F(Prune, HasNothingToDoWhenAllIsNeeded) {
  EXPECT_EQ(prune("1", {"--yes"}).code, 0);
  const FolderTree before = tree();
  const CommandResult result = prune("1", {"--yes"});
  EXPECT_EQ(result.code, 4);
  EXPECT_EQ(result.messages, "kvxpublish: " + folder_ + ": there is nothing to delete\n");
  EXPECT_EQ(tree(), before);
}

TEST_F(Prune, KeepsTheLiveReleaseWhateverItsAge) {
  for (const std::wstring ending : {L".json", L".sig"}) {
    write_text(site_.site(L"manifest" + ending), read_text(site_.site(L"history\\live\\1" + ending)));
  }
  ASSERT_EQ(prune("1", {"--yes"}).code, 0);
  EXPECT_THAT(list_folder(site_.site(L"history\\live")),
              UnorderedElementsAre(L"1.json", L"1.sig", L"4.json", L"4.sig"));
  EXPECT_TRUE(has_content("own of 1"));
  EXPECT_FALSE(has_content("own of 2"));
  EXPECT_FALSE(has_content("own of 3"));
  EXPECT_TRUE(has_content("own of 4"));
}

TEST_F(Prune, KeepsALiveReleaseThatTheHistoryHasLost) {
  remove_file(site_.site(L"history\\live\\4.json"));
  ASSERT_EQ(prune("1", {"--yes"}).code, 0);
  EXPECT_TRUE(has_content("own of 4"));
  EXPECT_TRUE(has_content("own of 3"));
  EXPECT_FALSE(has_content("own of 2"));
}

TEST_F(Prune, KeepsTheHistoryOfAChannelThatIsNotLiveAnyMore) {
  remove_file(site_.site(L"test\\manifest.json"));
  ASSERT_EQ(prune("4", {"--yes"}).code, 4);
  EXPECT_TRUE(has_content("own of test"));
}

TEST_F(Prune, KeepsLaunchersThatAKeptReleaseNames) {
  write_text(site_.game(L"own"), "own of 5");
  ASSERT_EQ(site_.pack({"--serial=5", "--launcher=" + to_utf8(built_launcher())}).code, 0);
  ASSERT_EQ(prune("1", {"--yes"}).code, 0);
  EXPECT_TRUE(has_content(read_text(built_launcher())));
  EXPECT_FALSE(has_content("own of 4"));
}

TEST_F(Prune, KeepsALiveReleaseOfAnotherChannelThatHasNoHistory) {
  remove_tree(site_.site(L"history\\test"));
  ASSERT_EQ(prune("1", {"--yes"}).code, 0);
  EXPECT_TRUE(has_content("own of test"));
}

TEST_F(Prune, TakesAFolderWithAnotherProgramsManifestForNoChannel) {
  write_text(site_.site(L"web\\manifest.json"), R"({"name":"a page"})");
  const CommandResult result = prune("1", {"--yes"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_TRUE(exists(site_.site(L"web\\manifest.json")));
}

TEST_F(Prune, DoesNotGuessWhatAManifestThatMayBeAChannelsNeeds) {
  write_text(site_.site(L"history\\old\\x"), "");
  const std::string advice = "; publish the channel again, or move the folder out of the site if it is no channel";
  struct Case {
    std::string folder;
    std::string manifest;
    bool is_signed;
    std::string reason;
  };
  for (const Case& c : std::vector<Case>{
           {"half", R"({"product":"KVX",)", false, "expected string at offset 17"},
           {"bad", R"({"product":"KVX"})", false, "missing \"format\""},
           {"sig", R"({"name":"a page"})", true, "missing \"format\""},
           {"old", R"({"name":"a page"})", false, "missing \"format\""},
       }) {
    SCOPED_TRACE(c.folder);
    const std::wstring folder = site_.site(to_wide(c.folder));
    write_text(folder + L"\\manifest.json", c.manifest);
    if (c.is_signed) write_text(folder + L"\\manifest.sig", "x");
    const CommandResult result = prune("1", {"--yes"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.messages, "kvxpublish: " + to_utf8(folder) + "\\manifest.json: launchers would refuse this " +
                                   "release: " + c.reason + advice + "\n");
    remove_tree(folder);
  }
}

TEST_F(Prune, LeavesFilesAloneThatAreNoContent) {
  write_text(site_.site(L"files\\index.html"), "x");
  write_text(site_.site(L"files\\" + std::wstring(64, L'A')), "upper case");
  write_text(site_.site(L"robots.txt"), "x");
  write_text(site_.site(L"history\\live\\notes.json"), "x");
  write_text(site_.site(L"history\\live\\01.json"), "x");
  ASSERT_EQ(prune("1", {"--yes"}).code, 0);
  for (const std::wstring& name :
       {std::wstring(L"files\\index.html"), L"files\\" + std::wstring(64, L'A'), std::wstring(L"robots.txt"),
        std::wstring(L"history\\live\\notes.json"), std::wstring(L"history\\live\\01.json")}) {
    EXPECT_TRUE(exists(site_.site(name)));
  }
}

TEST_F(Prune, DeletesTemporaryFilesThatAreOlderThanADay) {
  ASSERT_EQ(prune("1", {"--yes"}).code, 0);
  const FolderTree expected = tree();
  const std::vector<std::wstring> names = {L"manifest.json.tmp", L"test\\manifest.sig.tmp", L"files\\x.aside.tmp",
                                           L"history\\live\\3.json.tmp", L"content-7-0.tmp\\0.tmp"};
  for (const std::wstring& name : names) {
    write_text(site_.site(name), "left");
    set_last_write_time(site_.site(name), now() - day - minute);
  }
  set_last_write_time(site_.site(L"content-7-0.tmp"), now() - day - minute);
  const CommandResult result = prune("1", {"--yes"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_THAT(result.data, HasSubstr("temporary=content-7-0.tmp/0.tmp\t4\n"));
  EXPECT_THAT(result.data, HasSubstr("temporary_files=5\nbytes=20\n"));
  EXPECT_EQ(tree(), expected);
}

// With the lock in hand nobody else has anything waiting.
TEST_F(Prune, DeletesWaitingContentOfAnyAge) {
  ASSERT_EQ(prune("1", {"--yes"}).code, 0);
  const FolderTree expected = tree();
  write_text(site_.site(L"content-7-0.tmp\\0.tmp"), "left");
  write_text(site_.site(L"content-7-1.tmp\\x"), "");
  remove_file(site_.site(L"content-7-1.tmp\\x"));
  const std::string data =
      "temporary=content-7-0.tmp/0.tmp\t4\nkept_releases=2\nkept_content=4\nhistory_files=0\ncontent_files=0\n"
      "temporary_files=1\nbytes=4\n";
  EXPECT_EQ(prune("1").data, data + "deleted=no\n");
  const CommandResult result = prune("1", {"--yes"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data, data + "deleted=yes\n");
  EXPECT_EQ(tree(), expected);
}

// As programs leave them that were ended early.
TEST_F(Prune, DoesNotCountReleasesThatWereNeverFinished) {
  FolderTree expected = tree();
  for (const std::wstring name :
       {L"history\\live\\3.sig", L"history\\live\\3.json", L"history\\live\\1.sig", L"history\\live\\1.json"}) {
    EXPECT_EQ(expected.erase(name), 1U);
  }
  for (const std::string text : {"own of 1", "own of 3"}) {
    EXPECT_EQ(expected.erase(L"files\\" + to_wide(sha256_hex(text))), 1U);
  }
  remove_file(site_.site(L"history\\live\\3.sig"));
  write_text(site_.site(L"history\\live\\5.sig"), "alone");
  const std::string history = line("history", "history/live/1.json") + line("history", "history/live/1.sig") +
                              line("history", "history/live/3.json") + line("history", "history/live/5.sig");
  const CommandResult result = prune("2", {"--yes"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_TRUE(result.data.starts_with(history)) << result.data;
  EXPECT_THAT(result.data, HasSubstr("kept_releases=3\nkept_content=5\nhistory_files=4\ncontent_files=2\n"));
  EXPECT_EQ(tree(), expected);
}

TEST_F(Prune, KeepsALiveReleaseThatIsNotSignedYet) {
  remove_file(site_.site(L"history\\live\\4.sig"));
  remove_file(site_.site(L"manifest.sig"));
  ASSERT_EQ(prune("2", {"--yes"}).code, 0);
  EXPECT_THAT(list_folder(site_.site(L"history\\live")), UnorderedElementsAre(L"3.json", L"3.sig", L"4.json"));
  EXPECT_TRUE(has_content("own of 4"));
}

TEST_F(Prune, LeavesYoungerTemporaryFiles) {
  ASSERT_EQ(prune("1", {"--yes"}).code, 0);
  write_text(site_.site(L"manifest.json.tmp"), "now");
  set_last_write_time(site_.site(L"manifest.json.tmp"), now() - day + minute);
  EXPECT_EQ(prune("1", {"--yes"}).code, 4);
  EXPECT_TRUE(exists(site_.site(L"manifest.json.tmp")));
}

TEST_F(Prune, RefusesWithOneClearLineAndDeletesNothing) {
  struct Refusal {
    const char* what;
    std::function<void()> prepare;
    std::vector<std::string> arguments;
    int code;
    std::string message;
  };
  const FolderTree whole = tree();
  std::string too_large;
  too_large.resize(largest_manifest_bytes + 1, ' ');
  const std::string unreadable = ": launchers would refuse this release: expected string at offset 1";
  const std::string advice = "; publish the channel again, or move the folder out of the site if it is no channel";
  const std::vector<std::string> usual = {folder_, "--keep=1", "--yes"};
  for (const Refusal& refusal : std::vector<Refusal>{
           {"nothing to keep", [] {}, {folder_}, 2, "--keep is required; see kvxpublish --help"},
           {"no decimal number",
            [] {},
            {folder_, "--keep=0x10"},
            2,
            "--keep: \"0x10\" is no number from 1 to 1000000; see kvxpublish --help"},
           {"a live manifest that cannot be read", [&] { write_text(site_.site(L"manifest.json"), "{"); }, usual, 3,
            folder_ + "\\manifest.json" + unreadable},
           {"a live manifest of another channel", [&] { write_text(site_.site(L"test\\manifest.json"), "{"); }, usual,
            3, folder_ + "\\test\\manifest.json" + unreadable + advice},
           {"a live manifest of the wrong channel",
            [&] { write_text(site_.site(L"Beta\\manifest.json"), read_text(site_.site(L"manifest.json"))); }, usual, 3,
            folder_ +
                "\\beta\\manifest.json: launchers on channel \"beta\" would refuse this release: it is for "
                "channel \"live\"" +
                advice},
           {"a release that would go cannot be read", [&] { write_text(site_.site(L"history\\live\\1.json"), "{"); },
            usual, 3, folder_ + "\\history\\live\\1.json" + unreadable},
           {"a release of a channel that is not live cannot be read",
            [&] { write_text(site_.site(L"history\\beta\\1.json"), "{"); }, usual, 3,
            folder_ + "\\history\\beta\\1.json" + unreadable},
           {"a manifest too large for launchers", [&] { write_text(site_.site(L"history\\live\\2.json"), too_large); },
            usual, 1, folder_ + "\\history\\live\\2.json: is larger than 67108864 bytes"},
           {"no site", [&] { remove_tree(to_wide(folder_)); }, usual, 1,
            folder_ + ": nothing is published there; name the site's own folder"},
           {"a folder of content alone",
            [&] {
              remove_tree(site_.site(L"history"));
              remove_tree(site_.site(L"test"));
              remove_file(site_.site(L"manifest.json"));
            },
            usual, 1, folder_ + ": nothing is published there; name the site's own folder"},
       }) {
    SCOPED_TRACE(refusal.what);
    refusal.prepare();
    const FolderTree before = tree();
    std::vector<std::string> arguments = {"prune"};
    arguments.insert(arguments.end(), refusal.arguments.begin(), refusal.arguments.end());
    const CommandResult result = kvxpublish(arguments);
    EXPECT_EQ(result.code, refusal.code);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_EQ(result.messages, "kvxpublish: " + refusal.message + "\n");
    EXPECT_EQ(tree(), before);
    remove_tree(to_wide(folder_));
    for (const auto& [name, text] : whole) {
      if (!name.ends_with(L'\\')) write_text(site_.site(name), text);
    }
  }
}

TEST_F(Prune, KeepsAtLeastOne) {
  for (const std::string keep : {"0", "-1", "all"}) EXPECT_EQ(prune(keep, {"--yes"}).code, 2) << keep;
}

// A file that is held open cannot be deleted; the releases that name it have gone before.
TEST_F(Prune, NamesTheFileThatCannotBeDeletedAndGoesOnTheNextTime) {
  const std::wstring held = site_.site(L"files\\" + to_wide(sha256_hex("own of 1")));
  FileLock lock(held);
  const CommandResult result = prune("1", {"--yes"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.messages, testing::StartsWith("kvxpublish: " + to_utf8(held) + ": cannot be deleted: "));
  EXPECT_THAT(result.messages, testing::EndsWith("; what is not deleted yet is left to the next time\n"));
  EXPECT_FALSE(exists(site_.site(L"history\\live\\1.json")));
  lock.release();
  EXPECT_EQ(prune("1", {"--yes"}).code, 0);
  EXPECT_FALSE(exists(held));
}

TEST_F(Prune, StopsWhenThePersonAsksForIt) {
  const FolderTree before = tree();
  CapturedConsole console;
  console.stop_asked = [] { return true; };
  const CommandResult result = kvxpublish({"prune", folder_, "--keep=1", "--yes"}, console);
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: stopped; what is not deleted yet is left to the next time\n");
  EXPECT_EQ(tree(), before);
}

}  // namespace
}  // namespace kvx::test
