#include "tools/kvxpublish/site/site_lock.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "tests/support/file_lock.h"
#include "tests/support/test_clock.h"
#include "tests/tools/kvxpublish/support/folder_tree.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using testing::IsEmpty;

// Two releases on "live" and one on "test", and a file that could be a signature.
class SiteLock : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(site_.pack().code, 0);
    ASSERT_EQ(site_.pack({"--channel=test", "--version=7"}).code, 0);
    write_text(site_.game(L"new"), "new");
    ASSERT_EQ(site_.pack({"--version=2"}).code, 0);
    write_text(site_.path(L"signature"), std::string(64, 's'));
  }

  [[nodiscard]] std::vector<std::vector<std::string>> writing_commands() const {
    const std::string key = "--key=" + development_key("primary");
    return {
        {"pack", site_.game_folder(), "--out=" + folder_, "--channel=live", "--version=3", "--exe=bin/game.exe", key},
        {"publish", to_utf8(site_.path(L"other")), "--to=" + folder_},
        {"promote", "--from=test", "--to=live", "--to-dir=" + folder_, key},
        {"rollback", folder_, "--to=1.0", key},
        {"sign", folder_, "--key=" + development_key("backup")},
        {"attach", folder_, "--signature=" + to_utf8(site_.path(L"signature"))},
        {"prune", folder_, "--keep=1", "--yes"}};
  }

  TestClock clock_;
  PublishSite site_;
  std::string folder_ = site_.site_folder();
  std::wstring lock_file_ = site_.site(L"kvxpublish.lock");
};

TEST_F(SiteLock, KeepsEveryWritingCommandOutWhileAnotherWorksOnTheSite) {
  ASSERT_EQ(kvxpublish({"pack", site_.game_folder(), "--out=" + to_utf8(site_.path(L"other")), "--channel=live",
                        "--version=3", "--serial=9", "--exe=bin/game.exe", "--key=" + development_key("primary")})
                .code,
            0);
  write_text(lock_file_, "");
  const FolderTree before = folder_tree(to_wide(folder_));
  for (const std::vector<std::string>& command : writing_commands()) {
    SCOPED_TRACE(command[0]);
    FileLock another(lock_file_);
    const CommandResult result = kvxpublish(command);
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_EQ(result.messages,
              "kvxpublish: " + folder_ + ": another kvxpublish is working on this site; try again when it has ended\n");
    another.release();
    EXPECT_EQ(folder_tree(to_wide(folder_)), before);
  }
}

TEST_F(SiteLock, LeavesReadersAlone) {
  write_text(lock_file_, "");
  const FileLock another(lock_file_);
  EXPECT_EQ(kvxpublish({"verify", folder_}).code, 0);
  EXPECT_EQ(kvxpublish({"prune", folder_, "--keep=1"}).code, 0);
}

TEST_F(SiteLock, WaitsAMomentForAnotherThatIsJustEnding) {
  write_text(lock_file_, "");
  FileLock another(lock_file_);
  clock_.on_sleep([&](uint32_t) { another.release(); });
  EXPECT_EQ(kvxpublish(writing_commands()[3]).code, 0);
}

TEST_F(SiteLock, TakesOverWhatACrashLeftBehindAndLeavesNothing) {
  write_text(lock_file_, "");
  EXPECT_EQ(kvxpublish(writing_commands()[3]).code, 0);
  EXPECT_FALSE(exists(lock_file_));
}

TEST_F(SiteLock, LastsUntilTheCommandHasEnded) {
  const std::wstring web = site_.path(L"web");
  CapturedConsole console;
  CommandResult meanwhile;
  console.stop_asked = [&] {
    if (meanwhile.code < 0) meanwhile = kvxpublish({"prune", to_utf8(web), "--keep=1", "--yes"});
    return true;
  };
  EXPECT_EQ(kvxpublish({"publish", folder_, "--to", to_utf8(web)}, console).code, 1);
  EXPECT_EQ(meanwhile.code, 1);
  EXPECT_EQ(meanwhile.messages, "kvxpublish: " + to_utf8(web) +
                                    ": another kvxpublish is working on this site; try again when it has ended\n");
  EXPECT_FALSE(exists(web));
}

}  // namespace
}  // namespace kvx::test
