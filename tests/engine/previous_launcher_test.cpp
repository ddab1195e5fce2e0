#include "engine/previous_launcher.h"

#include <memory>

#include "tests/engine/engine_test.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PreviousLauncher : public EngineTest {
 protected:
  PreviousLauncher() { write_text(self_path_, "launcher"); }

  void clean_up() { remove_previous_launcher(self_path_, install_dir_); }

  TestClock clock_;
  const std::wstring self_path_ = game(L"KVXLauncher.exe");
  const std::wstring previous_path_ = game(L"KVXLauncher.old.exe");
  const std::wstring new_path_ = game(L"KVXLauncher.new.exe");
  const std::string removed_line_ = "removed previous launcher " + to_utf8(previous_path_);
};

TEST_F(PreviousLauncher, IsNamedAfterTheLauncherWithoutItsEnding) {
  struct Case {
    const wchar_t* self;
    const wchar_t* previous;
  };
  for (const Case& c :
       {Case{L"C:\\game\\KVXLauncher.exe", L"C:\\game\\KVXLauncher.old.exe"},
        Case{L"C:\\game\\Mein Start.EXE", L"C:\\game\\Mein Start.old.exe"},
        Case{L"C:\\game\\a.exe", L"C:\\game\\a.old.exe"}, Case{L"C:\\game\\.exe", L"C:\\game\\.exe.old.exe"},
        Case{L"C:\\game\\launcher", L"C:\\game\\launcher.old.exe"},
        Case{L"C:\\game\\a.exe.bin", L"C:\\game\\a.exe.bin.old.exe"},
        Case{L"C:\\game\\a.exe.exe", L"C:\\game\\a.exe.old.exe"}}) {
    EXPECT_EQ(to_utf8(previous_launcher_path(c.self)), to_utf8(c.previous));
  }
  EXPECT_EQ(new_launcher_path(L"C:\\game"), L"C:\\game\\KVXLauncher.new.exe");
}

TEST_F(PreviousLauncher, IsRemovedTogetherWithAnUnusedNewOne) {
  write_text(previous_path_, "previous");
  write_text(new_path_, "new");
  clean_up();
  EXPECT_FALSE(exists(previous_path_));
  EXPECT_FALSE(exists(new_path_));
  EXPECT_EQ(read_text(self_path_), "launcher");
  EXPECT_THAT(log_.messages(), ElementsAre(removed_line_));
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(PreviousLauncher, LeavesNoTraceWhenThereIsNone) {
  clean_up();
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  write_text(new_path_, "new");
  clean_up();
  EXPECT_FALSE(exists(new_path_));
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(PreviousLauncher, IsTriedForTenSecondsAndThenLeftForTheNextStart) {
  write_text(previous_path_, "previous");
  write_text(new_path_, "new");
  {
    const FileLock lock(previous_path_);
    clean_up();
    EXPECT_THAT(clock_.sleeps(), testing::AllOf(testing::SizeIs(40), testing::Each(250U)));
  }
  EXPECT_TRUE(exists(previous_path_));
  EXPECT_FALSE(exists(new_path_));
  EXPECT_THAT(log_.messages(), IsEmpty());
  clean_up();
  EXPECT_FALSE(exists(previous_path_));
  EXPECT_THAT(log_.messages(), ElementsAre(removed_line_));
}

TEST_F(PreviousLauncher, IsRemovedAsSoonAsItsProcessLetsGo) {
  write_text(previous_path_, "previous");
  FileLock lock(previous_path_);
  clock_.on_sleep([&](uint32_t slept_ms) {
    if (slept_ms == 500) lock.release();
  });
  clean_up();
  EXPECT_FALSE(exists(previous_path_));
  EXPECT_THAT(clock_.sleeps(), ElementsAre(250U, 250U, 250U));
  EXPECT_THAT(log_.messages(), ElementsAre(removed_line_));
}

TEST_F(PreviousLauncher, IsRemovedEvenWhenReadOnly) {
  write_text(previous_path_, "previous");
  make_read_only(previous_path_);
  clean_up();
  EXPECT_FALSE(exists(previous_path_));
  EXPECT_THAT(clock_.sleeps(), ElementsAre(250U));
}

TEST_F(PreviousLauncher, IsNoFolderOfThatName) {
  make_folder(previous_path_);
  clean_up();
  EXPECT_TRUE(is_folder(previous_path_));
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  EXPECT_THAT(log_.messages(), IsEmpty());
}

}  // namespace
}  // namespace kvx::test
