#include "tools/kvxpublish/commands/rollback.h"

#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "tests/support/sha256_hex.h"
#include "tests/tools/kvxpublish/support/folder_tree.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> paths_of(const Manifest& manifest) {
  std::vector<std::string> paths;
  for (const ManifestFile& file : manifest.files) paths.push_back(file.path);
  return paths;
}

// Versions 1.0, 1.1 and 1.2 as serials 1 to 3. Each later one brings a file that the next has not.
class Rollback : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(site_.pack().code, 0);
    write_text(site_.game(L"only in 1.1"), "1.1");
    ASSERT_EQ(pack_next("1.1"), 0);
    remove_file(site_.game(L"only in 1.1"));
    remove_tree(site_.game(L"data"));
    write_text(site_.game(L"only in 1.2"), "1.2");
    ASSERT_EQ(pack_next("1.2"), 0);
  }

  [[nodiscard]] int pack_next(const std::string& version) const {
    return site_.pack({"--version=" + version, "--previous=" + site_.site_folder()}).code;
  }

  [[nodiscard]] CommandResult rollback(const std::string& to, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"rollback", folder_, "--to", to});
    const auto signs = [](const std::string& option) { return option.starts_with("--key") || option == "--unsigned"; };
    if (std::ranges::none_of(options, signs)) options.push_back("--key=" + development_key("primary"));
    return kvxpublish(options);
  }

  PublishSite site_;
  std::string folder_ = site_.site_folder();
};

TEST_F(Rollback, PublishesTheOldContentUnderANewSerial) {
  const std::string data = "channel=live\nversion=1.0\nserial=4\nfiles=2\nbytes=17\nremovals=2\nkey=1ef5b9d93b368184\n";
  const CommandResult result = rollback("1.0");
  ASSERT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data, data);
  EXPECT_EQ(result.messages, site_.verify_hint());
  const Manifest manifest = site_.published();
  EXPECT_THAT(paths_of(manifest), ElementsAre("bin/game.exe", "data/a pack.bin"));
  EXPECT_EQ(read_text(site_.site(L"history\\live\\4.json")), read_text(site_.site(L"manifest.json")));
}

TEST_F(Rollback, TellsWhenTheLauncherGoesOutOfTheRelease) {
  ASSERT_EQ(site_.pack({"--version=1.3", "--launcher=" + to_utf8(built_launcher())}).code, 0);
  const CommandResult result = rollback("1.0");
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.messages, "note: the release before hands out launcher " KVX_LAUNCHER_VERSION
                             " and this one none; launchers that have it already keep it\n" +
                                 site_.verify_hint());
}

TEST_F(Rollback, DeletesEverythingThatWasShippedSince) {
  ASSERT_EQ(rollback("1.0").code, 0);
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("only in 1.1", "only in 1.2"));
  ASSERT_EQ(rollback("serial:2").code, 0);
  EXPECT_EQ(site_.published().serial, 5);
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("only in 1.2"));
}

TEST_F(Rollback, DeletesWhatEarlierReleasesDeletedAndWhatNobodyCarriedOn) {
  write_text(site_.game(L"forgotten"), "x");
  ASSERT_EQ(pack_next("1.3"), 0);
  remove_file(site_.game(L"forgotten"));
  ASSERT_EQ(site_.pack({"--version=1.4", "--remove=ancient"}).code, 0);  // without --previous
  ASSERT_EQ(rollback("1.2").code, 0);
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("ancient", "data/a pack.bin", "forgotten", "only in 1.1"));
}

TEST_F(Rollback, TakesASerialOrAVersion) {
  struct Case {
    const char* to;
    const char* version;
  };
  for (const Case& c :
       std::vector<Case>{{"1", "1.0"}, {"2", "1.1"}, {"serial:1", "1.0"}, {"version:1.1", "1.1"}, {"1.0", "1.0"}}) {
    SCOPED_TRACE(c.to);
    ASSERT_EQ(rollback(c.to).code, 0);
    EXPECT_EQ(site_.published().version, c.version);
  }
  EXPECT_EQ(site_.published().serial, 8);
}

TEST_F(Rollback, AsksWhatANumberMeansThatIsBoth) {
  ASSERT_EQ(site_.pack({"--version=2", "--previous=" + folder_}).code, 0);  // serial 4
  ASSERT_EQ(pack_next("5"), 0);
  const CommandResult result = rollback("2");
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.messages,
            "kvxpublish: --to 2 is a serial, and the version of serial 4; write --to serial:2 or --to version:2\n");
  EXPECT_EQ(rollback("version:2").code, 0);
  EXPECT_EQ(site_.published().version, "2");
  EXPECT_EQ(rollback("serial:2").code, 0);
  EXPECT_EQ(site_.published().version, "1.1");
}

TEST_F(Rollback, TakesTheNewestOfAVersionThatWasPublishedTwice) {
  write_text(site_.game(L"bin\\game.exe"), "the game, fixed");
  ASSERT_EQ(pack_next("1.2"), 0);
  ASSERT_EQ(pack_next("1.3"), 0);
  const CommandResult result = rollback("1.2");
  ASSERT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.messages,
            "note: version 1.2 was published as serials 3, 4; the newest of them was taken\n" + site_.verify_hint());
  EXPECT_EQ(site_.published().files[0].sha256, sha256_hex("the game, fixed"));
}

TEST_F(Rollback, HasNothingToDoWhenTheContentIsLive) {
  for (const char* to : {"1.2", "3"}) {
    SCOPED_TRACE(to);
    const FolderTree before = folder_tree(to_wide(folder_));
    const CommandResult result = rollback(to);
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.messages, "kvxpublish: " + folder_ + "\\manifest.json: has the same content already\n");
    EXPECT_EQ(folder_tree(to_wide(folder_)), before);
  }
}

// As after a program that was ended between the manifest and the signature.
TEST_F(Rollback, PublishesAgainWhatLaunchersRefuse) {
  struct Case {
    const char* what;
    std::string signature;
  };
  int serial = 3;
  for (const Case& c : std::vector<Case>{{"no signature", ""},
                                         {"that of the release before", read_text(site_.site(L"manifest.sig"))}}) {
    SCOPED_TRACE(c.what);
    remove_file(site_.site(L"manifest.sig"));
    if (!c.signature.empty()) write_text(site_.site(L"manifest.sig"), c.signature);
    const CommandResult result = rollback("serial:3");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.messages, site_.verify_hint());
    EXPECT_EQ(result.data, "channel=live\nversion=1.2\nserial=" + std::to_string(++serial) +
                               "\nfiles=2\nbytes=11\nremovals=2\nkey=1ef5b9d93b368184\n");
    EXPECT_EQ(site_.published().serial, serial);
    EXPECT_EQ(rollback("serial:3").code, 4);
  }
}

// As after a program that was ended before the release was live.
TEST_F(Rollback, PassesOverAReleaseThatWasNeverFinished) {
  const FolderTree before = folder_tree(to_wide(folder_));
  ASSERT_EQ(rollback("1.0").code, 0);
  for (const std::wstring name : {L"manifest.json", L"manifest.sig"}) write_text(site_.site(name), before.at(name));
  remove_file(site_.site(L"history\\live\\4.sig"));
  const CommandResult result = rollback("1.0");
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.messages, site_.verify_hint());
  EXPECT_EQ(site_.published().version, "1.0");
  EXPECT_EQ(site_.published().serial, 5);
}

TEST_F(Rollback, WorksOnTheChannelThatIsNamed) {
  ASSERT_EQ(site_.pack({"--channel=test", "--version=7"}).code, 0);
  ASSERT_EQ(site_.pack({"--channel=test", "--version=8"}).code, 0);
  const std::string live = read_text(site_.site(L"manifest.json"));
  ASSERT_EQ(rollback("7", {"--channel=test"}).code, 0);
  EXPECT_EQ(site_.published("test").version, "7");
  EXPECT_EQ(site_.published("test").serial, 3);
  EXPECT_EQ(read_text(site_.site(L"manifest.json")), live);
}

TEST_F(Rollback, LeavesTheReleaseUnsignedForAVault) {
  const FolderTree before = folder_tree(to_wide(folder_));
  const CommandResult refused = rollback("1.0", {"--unsigned"});
  EXPECT_EQ(refused.code, 6);
  EXPECT_EQ(refused.messages, "kvxpublish: " + folder_ +
                                  "\\manifest.sig: players could take no release until the new one is signed; sign it "
                                  "now with --key, or work on a copy of the site and publish that; --yes takes the "
                                  "signature away all the same\n");
  EXPECT_EQ(folder_tree(to_wide(folder_)), before);
  const CommandResult result = rollback("1.0", {"--unsigned", "--yes"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.messages,
            "note: the release is not signed yet, and launchers refuse it until it is\nnext: kvxpublish digest \"" +
                folder_ + "\" --channel live\n");
  EXPECT_FALSE(exists(site_.site(L"manifest.sig")));
  EXPECT_EQ(rollback("1.0", {"--unsigned"}).code, 4);
}

TEST_F(Rollback, RefusesWithOneClearLineAndLeavesTheSiteAsItWas) {
  struct Refusal {
    const char* what;
    std::function<void()> prepare;
    std::string to;
    std::vector<std::string> options;
    int code;
    std::string message;
  };
  const FolderTree whole = folder_tree(to_wide(folder_));
  const std::wstring content = site_.site(L"files\\" + to_wide(sha256_hex("some data")));
  for (const Refusal& refusal : std::vector<Refusal>{
           {"no such release",
            [] {},
            "1.5",
            {},
            1,
            folder_ + ": there is no release 1.5 of channel \"live\"; it has 1.0 (serial 1), 1.1 (serial 2), 1.2 "
                      "(serial 3)"},
           {"no release at all",
            [] {},
            "1",
            {"--channel=beta"},
            1,
            folder_ + ": there is no release 1 of channel \"beta\"; it has none"},
           {"a serial that is a version only",
            [] {},
            "serial:1.0",
            {},
            1,
            folder_ + ": there is no release serial:1.0 of channel \"live\"; it has 1.0 (serial 1), 1.1 (serial 2), "
                      "1.2 (serial 3)"},
           {"a key that is missing",
            [] {},
            "1.0",
            {"--key=" + folder_ + "\\none.pem"},
            6,
            folder_ + "\\none.pem: there is no such key file"},
           {"a release that was never signed",
            [&] { remove_file(site_.site(L"history\\live\\1.sig")); },
            "1.0",
            {},
            6,
            folder_ + "\\history\\live\\1.sig: there is no signature, and launchers refuse the release without; sign "
                      "it first"},
           {"a release that somebody changed",
            [&] {
              write_text(site_.site(L"history\\live\\1.json"), read_text(site_.site(L"history\\live\\1.json")) + " ");
            },
            "1.0",
            {},
            6,
            folder_ + "\\history\\live\\1.sig: signature does not match the manifest; sign the release again, or name "
                      "the keys that launchers know with --public-keys"},
           {"content that is gone",
            [&] { remove_file(content); },
            "1.0",
            {},
            3,
            to_utf8(content) + ": is missing; publish the release there again, or pack it again"},
           {"a release since that cannot be read",
            [&] { write_text(site_.site(L"history\\live\\2.json"), "{"); },
            "1.0",
            {},
            3,
            folder_ + "\\history\\live\\2.json: launchers would refuse this release: expected string at offset 1"},
       }) {
    SCOPED_TRACE(refusal.what);
    refusal.prepare();
    const FolderTree before = folder_tree(to_wide(folder_));
    const CommandResult result = rollback(refusal.to, refusal.options);
    EXPECT_EQ(result.code, refusal.code);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_EQ(result.messages, "kvxpublish: " + refusal.message + "\n");
    EXPECT_EQ(folder_tree(to_wide(folder_)), before);
    remove_tree(to_wide(folder_));
    for (const auto& [name, text] : whole) {
      if (!name.ends_with(L'\\')) write_text(site_.site(name), text);
    }
  }
}

TEST_F(Rollback, GoesOnFromTheHistoryWhenTheLiveManifestIsBroken) {
  write_text(site_.site(L"manifest.json"), "{");
  const CommandResult result = rollback("1.0");
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.messages, "note: " + folder_ +
                                 "\\manifest.json: launchers would refuse this release: expected string at offset 1; "
                                 "the serial follows that of the newest release in the history\n" +
                                 site_.verify_hint());
  EXPECT_EQ(site_.published().serial, 4);
  EXPECT_EQ(site_.published().version, "1.0");
}

TEST_F(Rollback, NeedsAKeyOrToBeToldThatThereIsNone) {
  const CommandResult result = kvxpublish({"rollback", folder_, "--to", "1.0"});
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.messages, "kvxpublish: sign the release with --key PEM, or leave that for later with --unsigned\n");
}

}  // namespace
}  // namespace kvx::test
