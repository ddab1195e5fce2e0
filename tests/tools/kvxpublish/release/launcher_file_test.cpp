#include "tools/kvxpublish/release/launcher_file.h"

#include <gmock/gmock.h>
#include <string>

#include "foundations/files.h"
#include "foundations/text.h"
#include "tests/support/sha256_hex.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

const std::string marker = "KVXLAUNCHER-VERSION:" KVX_LAUNCHER_VERSION ";";

class LauncherFile : public testing::Test {
 protected:
  // The launcher with every marker replaced by a text of the same length.
  [[nodiscard]] std::string changed(const std::string& replacement) const {
    EXPECT_EQ(replacement.size(), marker.size());
    std::string program = read_text(built_launcher());
    size_t found = 0;
    for (size_t at = program.find(marker); at != std::string::npos; at = program.find(marker, at + 1)) {
      program.replace(at, marker.size(), replacement);
      ++found;
    }
    EXPECT_GT(found, 0U);
    return program;
  }

  [[nodiscard]] std::string refusal_of(const std::string& program) const {
    write_text(site_.path(L"l.exe"), program);
    LauncherEntry entry;
    publish::Failure failure;
    EXPECT_FALSE(publish::describe_launcher_file(site_.path(L"l.exe"), nullptr, entry, failure));
    EXPECT_EQ(failure.code, publish::ExitCode::refused);
    return failure.text;
  }

  [[nodiscard]] std::string file() const { return to_utf8(site_.path(L"l.exe")); }

  PublishSite site_;
};

TEST_F(LauncherFile, IsHandedOutWithTheVersionThatItReports) {
  const CommandResult result = site_.pack({"--launcher=" + to_utf8(built_launcher())});
  ASSERT_EQ(result.code, 0) << result.messages;
  EXPECT_THAT(result.data, testing::HasSubstr("\nlauncher=" KVX_LAUNCHER_VERSION "\n"));
  const std::string program = read_text(built_launcher());
  const LauncherEntry entry = site_.published().launcher;
  EXPECT_TRUE(entry.present);
  EXPECT_EQ(entry.version, KVX_LAUNCHER_VERSION);
  EXPECT_EQ(entry.size, program.size());
  EXPECT_EQ(entry.sha256, sha256_hex(program));
  EXPECT_TRUE(read_text(site_.site(L"files\\" + to_wide(entry.sha256))) == program);
}

TEST_F(LauncherFile, IsRefusedWhenItDoesNotKnowTheKeyThatSigns) {
  const std::string keys = to_utf8(site_.path(L"keys"));
  const std::string launcher = to_utf8(built_launcher());
  const CommandResult made = kvxpublish({"keygen", "--out", keys});
  ASSERT_EQ(made.code, 0);
  const size_t at = made.data.find("identifier=") + 11;
  const CommandResult result = site_.pack({"--launcher=" + launcher, "--key=" + keys + "\\private_key.pem"});
  EXPECT_EQ(result.code, 6);
  EXPECT_EQ(result.messages, "kvxpublish: " + launcher + ": does not know the signing key " + made.data.substr(at, 16) +
                                 " and would refuse this release; build it with that key\n");
  EXPECT_FALSE(exists(site_.site(L"")));
}

TEST_F(LauncherFile, IsNotAskedForAKeyThatIsNotThereYet) {
  const CommandResult result = site_.pack({"--launcher=" + to_utf8(built_launcher()), "--key="});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.messages,
              testing::StartsWith("note: the launcher must know the key that will sign; nothing has checked that\n"));
}

TEST_F(LauncherFile, IsRefusedWhenMarkerAndVersionRecordDisagree) {
  std::string other = marker;
  other[other.size() - 2] = other[other.size() - 2] == '9' ? '8' : '9';
  const std::string version = other.substr(20, other.size() - 21);
  EXPECT_THAT(refusal_of(changed(other)),
              testing::AllOf(testing::StartsWith(file() + ": its version record says "),
                             testing::EndsWith(" but the launcher reports " + version + "; build the launcher again")));
}

TEST_F(LauncherFile, IsRefusedWithoutAMarker) {
  const std::string refusal = file() + ": has no version marker (KVXLAUNCHER-VERSION); it is no launcher";
  EXPECT_EQ(refusal_of(changed(std::string(marker.size(), 'x'))), refusal);
  EXPECT_EQ(refusal_of("KVXLAUNCHER-VERSION:1.0"), refusal);
  EXPECT_EQ(refusal_of("KVXLAUNCHER-VERSION:words;"), refusal);
  EXPECT_EQ(refusal_of(""), refusal);
}

TEST_F(LauncherFile, IsRefusedWithTwoMarkersThatDisagree) {
  EXPECT_EQ(refusal_of("KVXLAUNCHER-VERSION:1.0;KVXLAUNCHER-VERSION:1.1;"),
            file() + ": has version markers that disagree (1.0 and 1.1); it is no launcher");
}

TEST_F(LauncherFile, IsRefusedWithoutAVersionRecord) {
  EXPECT_EQ(refusal_of("KVXLAUNCHER-VERSION:1.0;"), file() + ": has no version record; build the launcher again");
}

}  // namespace
}  // namespace kvx::test
