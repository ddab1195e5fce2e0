#include "engine/state_file.h"

#include "tests/engine/engine_test.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

class StateFileOnDisk : public testing::Test {
 protected:
  // What a file of these bytes says, as saving would write it.
  std::string reloaded(const std::string& bytes) {
    write_text(path_, bytes);
    StateFile state;
    state.load(path_);
    EXPECT_TRUE(state.save());
    return read_text(path_);
  }

  TestClock clock_;
  TempFolder folder_;
  const std::wstring path_ = folder_ / L"state.txt";
};

TEST_F(StateFileOnDisk, LoadsGoodLinesAndSkipsTheOthers) {
  struct Case {
    const char* file;
    const char* saved;
  };
  for (const Case& c :
       {Case{"", ""}, Case{"=x\n", ""}, Case{"=\n", ""}, Case{"no equals sign\n", ""}, Case{"a=b=c\n", "a=b=c\n"},
        Case{"k=\n", "k=\n"}, Case{"a=1\r\n", "a=1\n"}, Case{"a=1\r\r\n", "a=1\r\n"}, Case{"a=1", "a=1\n"},
        Case{"\n\r\n\na=1\n\n", "a=1\n"}, Case{"k=1\nk=2\n", "k=2\n"}, Case{" a = b \n", " a = b \n"},
        Case{"# a=b\n", "# a=b\n"}, Case{"b=2\nB=3\na=1\n", "B=3\na=1\nb=2\n"},
        Case{"installed.version=1\nchannel=live\n\xC3\xA4=\xC3\xB6\n",
             "channel=live\ninstalled.version=1\n\xC3\xA4=\xC3\xB6\n"}}) {
    EXPECT_EQ(reloaded(c.file), c.saved) << c.file;
  }
}

TEST_F(StateFileOnDisk, TellsAnEmptyValueFromNone) {
  write_text(path_, "empty=\nfull=x=y\n");
  StateFile state;
  state.load(path_);
  EXPECT_EQ(state.get("empty"), "");
  EXPECT_EQ(state.get("full"), "x=y");
  EXPECT_EQ(state.get("absent"), std::nullopt);
  EXPECT_EQ(state.get_or_empty("absent"), "");
  EXPECT_EQ(state.get_or_empty("full"), "x=y");
}

TEST_F(StateFileOnDisk, ReplacesWhatWasLoadedBefore) {
  StateFile state;
  write_text(path_, "a=1\n");
  state.load(path_);
  state.load(folder_ / L"absent.txt");
  EXPECT_EQ(state.get("a"), std::nullopt);
}

TEST_F(StateFileOnDisk, WritesEveryEntryInKeyOrder) {
  StateFile state;
  state.load(path_);
  state.set(state_key::accepted_serial("live"), "42");
  state.set(state_key::installed_version, "1.4.2");
  state.set(state_key::installed_serial, "41");
  state.set(state_key::installed_serial, "42");
  state.set(state_key::installed_channel, "live");
  state.set(state_key::updating_serial, "43");
  state.set(state_key::complete, "1");
  state.set(state_key::channel, "beta");
  ASSERT_TRUE(state.save());
  EXPECT_EQ(read_text(path_),
            "channel=beta\ncomplete=1\ninstalled.channel=live\ninstalled.serial=42\ninstalled.version=1.4.2\n"
            "serial.live=42\nupdating.serial=43\n");
}

TEST_F(StateFileOnDisk, CountsAsEmptyAboveOneMebibyte) {
  constexpr size_t limit = 1048576;
  const std::string line = "a=1\n";
  EXPECT_EQ(reloaded(line + std::string(limit - line.size(), 'x')), line);
  EXPECT_EQ(reloaded(line + std::string(limit + 1 - line.size(), 'x')), "");
}

TEST_F(StateFileOnDisk, CountsAsEmptyWhenItCannotBeRead) {
  write_text(path_, "a=1\n");
  const FileLock lock(path_);
  StateFile state;
  state.load(path_);
  EXPECT_EQ(state.get("a"), std::nullopt);
}

TEST_F(StateFileOnDisk, KeepsItsOldContentWhenItCannotBeSaved) {
  write_text(path_, "a=1\n");
  StateFile state;
  state.load(path_);
  state.set("a", "2");
  {
    const FileLock lock(path_, FILE_SHARE_READ);
    EXPECT_FALSE(state.save());
  }
  EXPECT_EQ(read_text(path_), "a=1\n");
  EXPECT_THAT(list_folder(folder_.path()), testing::ElementsAre(L"state.txt"));
}

}  // namespace
}  // namespace kvx::test
