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

// Tried, it would be deleted here, or waited for while it is held.
TEST_F(PreviousLauncher, IsNeverTheRunningLauncherItself) {
  write_text(previous_path_, "previous");
  write_text(new_path_, "new");
  for (const wchar_t* self : {L"KVXLauncher.new.exe", L"kvxlauncher.NEW.exe"}) {
    remove_previous_launcher(game(self), install_dir_);
    const FileLock lock(new_path_);
    remove_previous_launcher(game(self), install_dir_);
    EXPECT_TRUE(exists(new_path_));
  }
  remove_previous_launcher(previous_path_, install_dir_);
  EXPECT_FALSE(exists(new_path_));
  EXPECT_EQ(read_text(previous_path_), "previous");
  EXPECT_EQ(read_text(self_path_), "launcher");
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  EXPECT_THAT(log_.messages(), IsEmpty());
}

class MissingLauncher : public PreviousLauncher {
 protected:
  MissingLauncher() { DeleteFileW(self_path_.c_str()); }

  // The log's lines about it.
  std::vector<std::string> restore(const std::wstring& own_path) {
    const size_t before = log_.messages().size();
    restore_missing_launcher(own_path, install_dir_, temporary_);
    std::vector<std::string> lines = log_.messages();
    lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(before));
    return lines;
  }

  const std::wstring temporary_ = staging(L"KVXLauncher.exe.tmp");
};

TEST_F(MissingLauncher, IsRestoredFromEitherFileOfASelfUpdate) {
  for (const char* name :
       {"KVXLauncher.new.exe", "KVXLauncher.old.exe", "kvxlauncher.NEW.exe", "KVXLAUNCHER.OLD.EXE"}) {
    const std::wstring own_path = game(to_wide(name));
    write_text(own_path, name);
    EXPECT_THAT(restore(own_path), ElementsAre(std::string("KVXLauncher.exe was missing: restored from ") + name));
    EXPECT_EQ(read_text(self_path_), name);
    EXPECT_EQ(read_text(own_path), name);
    EXPECT_FALSE(exists(temporary_));
    DeleteFileW(self_path_.c_str());
    DeleteFileW(own_path.c_str());
  }
}

TEST_F(MissingLauncher, IsNotRestoredFromAnyOther) {
  for (const wchar_t* name : {L"Start.exe", L"Start.new.exe", L"Start.old.exe", L"KVXLauncher.new.old.exe",
                              L"KVXLauncher2.exe", L"sub\\KVXLauncher.new.exe", L"sub\\KVXLauncher.old.exe"}) {
    write_text(game(name), "another");
    EXPECT_THAT(restore(game(name)), IsEmpty());
    EXPECT_FALSE(exists(self_path_)) << to_utf8(name);
  }
}

TEST_F(MissingLauncher, StaysAsItIsWhereItIsThere) {
  write_text(self_path_, "launcher");
  for (const std::wstring& own_path : {new_path_, previous_path_}) {
    write_text(own_path, "another");
    write_text(temporary_, "half a copy");  // left by a process that was killed
    EXPECT_THAT(restore(own_path), IsEmpty());
    EXPECT_EQ(read_text(self_path_), "launcher");
    EXPECT_FALSE(exists(temporary_));
  }
}

TEST_F(MissingLauncher, IsRestoredByAStartThroughAShortName) {
  write_text(new_path_, "new");
  std::wstring own_path(MAX_PATH, L'\0');
  own_path.resize(GetShortPathNameW(new_path_.c_str(), own_path.data(), MAX_PATH));
  if (equals_ignore_case(file_name(own_path), file_name(new_path_))) GTEST_SKIP() << "this volume has no short names";
  EXPECT_THAT(restore(game(file_name(own_path))), testing::SizeIs(1));
  EXPECT_EQ(read_text(self_path_), "new");
  remove_previous_launcher(game(file_name(own_path)), install_dir_);
  EXPECT_EQ(read_text(new_path_), "new");
}

TEST_F(MissingLauncher, IsRestoredByTheNextStartWhereItCannotBeNow) {
  write_text(new_path_, "new");
  make_folder(temporary_);
  const std::vector<std::string> lines = restore(new_path_);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], testing::StartsWith("KVXLauncher.exe is missing and cannot be restored: "));
  EXPECT_FALSE(exists(self_path_));
  remove_tree(temporary_);
  restore(new_path_);
  EXPECT_EQ(read_text(self_path_), "new");
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
