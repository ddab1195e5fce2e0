#include "tools/kvxpublish/release/release_names.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kvx::test {
namespace {

using Paths = std::vector<std::string>;

std::string judge(const Paths& paths) {
  publish::Failure failure;
  if (publish::check_release_names(paths, failure)) return "fine";
  EXPECT_EQ(failure.code, publish::ExitCode::refused);
  return failure.text;
}

std::string judge_after(const Paths& earlier, const Paths& paths) {
  publish::Failure failure;
  if (publish::check_names_against(earlier, paths, failure)) return "fine";
  EXPECT_EQ(failure.code, publish::ExitCode::refused);
  return failure.text;
}

TEST(ReleaseNames, TakesOrdinaryOnes) {
  EXPECT_EQ(judge({"bin/game.exe", "Data/a.pak", "data/b.pak", "copy", "a.copy", "b.copy.x", "b"}), "fine");
  EXPECT_EQ(judge({std::string(250, 'x')}), "fine");
  // 250 characters of three bytes each.
  std::string wide;
  for (int i = 0; i < 250; ++i) wide += "\xE5\x90\x8D";
  EXPECT_EQ(judge({wide}), "fine");
}

TEST(ReleaseNames, RefusesNamesThatAreTheSameFileOnWindows) {
  const std::string same =
      ": the names differ only in upper and lower case or in their Unicode form, and are the same file on Windows; "
      "rename one";
  EXPECT_EQ(judge({"Data/a.pak", "data/A.PAK"}), "\"Data/a.pak\" and \"data/A.PAK\"" + same);
  EXPECT_EQ(judge({"\xC3\xA9t\xC3\xA9", "e\xCC\x81t\xC3\xA9"}), "\"été\" and \"e\xCC\x81t\xC3\xA9\"" + same);
  EXPECT_EQ(judge({"\xC3\x89", "e\xCC\x81"}), "\"É\" and \"e\xCC\x81\"" + same);
}

TEST(ReleaseNames, RefusesAFileWhereAnotherNeedsAFolder) {
  EXPECT_EQ(judge({"Data", "data/a/b"}),
            "\"Data\": Windows takes this file and the folder of \"data/a/b\" for the same name; rename one");
}

TEST(ReleaseNames, RefusesTheNameThatAnInstallUses) {
  EXPECT_EQ(judge({"data/a", "data/A.Copy"}),
            "\"data/A.Copy\": launchers use the name \"data/a.copy\" for a moment when they install \"data/a\"; rename "
            "one");
  EXPECT_EQ(judge({"a", "a.copy/x"}),
            "\"a.copy/x\": launchers use the name \"a.copy\" for a moment when they install \"a\"; rename one");
}

TEST(ReleaseNames, RefusesWhatWindowsTakesForADevice) {
  for (const std::string name : {"con", "Con .txt", "nul.tar.gz", "conout$", "COM1", "lpt9  .x", "COM\xC2\xB9",
                                 "com\xC2\xB2.txt", "LPT\xC2\xB3 .a.b"}) {
    EXPECT_EQ(judge({"a/" + name}),
              "\"a/" + name + "\": Windows takes \"" + name + "\" for a device and not for a file; rename it");
    EXPECT_EQ(judge({name + "/a"}),
              "\"" + name + "/a\": Windows takes \"" + name + "\" for a device and not for a file; rename it");
  }
  EXPECT_EQ(judge({"com", "com10", "com\xC2\xB9\xC2\xB9", "lpt\xE2\x81\xB4", "console", "a.con", " con", "con_.txt"}),
            "fine");
}

TEST(ReleaseNames, RefusesNamesThatAreTooLong) {
  const std::string name(251, 'x');
  EXPECT_EQ(judge({"a/" + name}), "\"a/" + name + "\": a name in this path has more than 250 characters; shorten it");
  EXPECT_EQ(judge({name + "/a"}), "\"" + name + "/a\": a name in this path has more than 250 characters; shorten it");
}

TEST(ReleaseNames, LetsFilesComeGoAndStay) {
  EXPECT_EQ(judge_after({"a", "data/b", "data/c"}, {"A", "data/b", "data/d/e", "f"}), "fine");
}

TEST(ReleaseNames, RefusesAFolderWhereAFileWasAndTheOtherWayRound) {
  EXPECT_EQ(
      judge_after({"Data", "x"}, {"x", "data/a"}),
      "\"data/a\": its folder \"Data\" was a file in an earlier release, and launchers cannot put a folder in its "
      "place; choose another name");
  EXPECT_EQ(
      judge_after({"Data/a", "x"}, {"x", "data"}),
      "\"data\": was a folder in an earlier release, and launchers cannot put a file in its place; choose another "
      "name");
}

}  // namespace
}  // namespace kvx::test
