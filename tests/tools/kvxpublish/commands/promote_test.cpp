#include "tools/kvxpublish/commands/promote.h"

#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"
#include "tests/tools/kvxpublish/support/folder_tree.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Releases 1 and 2 on "test", the second without the file "old".
class Promote : public testing::Test {
 protected:
  void SetUp() override {
    write_text(site_.game(L"old"), "old");
    ASSERT_EQ(site_.pack({"--channel=test", "--serial=11"}).code, 0);
    remove_file(site_.game(L"old"));
    ASSERT_EQ(site_.pack({"--channel=test", "--version=1.1", "--arg=-x", "--previous=" + folder_}).code, 0);
  }

  [[nodiscard]] CommandResult promote(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"promote", "--from=test", "--to=live", "--to-dir=" + folder_, key_};
    for (const std::string& option : more) {
      const std::string name = option.substr(0, option.find('='));
      std::erase_if(arguments, [&](const std::string& given) { return given.starts_with(name + "="); });
      if (!option.ends_with('=')) arguments.push_back(option);
    }
    return kvxpublish(arguments);
  }

  PublishSite site_;
  std::string folder_ = site_.site_folder();
  std::string key_ = "--key=" + development_key("primary");
};

TEST_F(Promote, OffersTheSameContentOnAnotherChannel) {
  const FolderTree before = folder_tree(to_wide(folder_));
  const CommandResult result = promote({"--key=" + development_key("backup")});
  ASSERT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data, "channel=live\nversion=1.1\nserial=1\nfiles=2\nbytes=17\nremovals=1\nkey=3b8a98b1ab900a55\n");
  EXPECT_EQ(result.messages, site_.verify_hint());
  const Manifest test = site_.published("test");
  const Manifest live = site_.published();
  EXPECT_EQ(live.version, test.version);
  EXPECT_THAT(live.args, ElementsAre("-x"));
  EXPECT_THAT(removals_of(live), ElementsAre("old"));
  ASSERT_EQ(live.files.size(), test.files.size());
  for (size_t i = 0; i < live.files.size(); ++i) EXPECT_EQ(live.files[i].sha256, test.files[i].sha256);

  FolderTree after = folder_tree(to_wide(folder_));
  EXPECT_EQ(after[L"manifest.json"], after[L"history\\live\\1.json"]);
  EXPECT_EQ(after[L"manifest.sig"], after[L"history\\live\\1.sig"]);
  for (const std::wstring name :
       {L"manifest.json", L"manifest.sig", L"history\\live\\", L"history\\live\\1.json", L"history\\live\\1.sig"}) {
    EXPECT_EQ(after.erase(name), 1U);
  }
  EXPECT_EQ(after, before);
}

TEST_F(Promote, TakesTheNextSerialAndTheRemovalsOfTheOtherChannel) {
  write_text(site_.game(L"only on live"), "live");
  ASSERT_EQ(site_.pack({"--serial=5"}).code, 0);
  remove_file(site_.game(L"only on live"));
  write_text(site_.game(L"later on live"), "live");
  ASSERT_EQ(site_.pack({"--serial=8"}).code, 0);  // without --previous: only the history knows the other file
  const CommandResult result = promote();
  ASSERT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(site_.published().serial, 9);
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("later on live", "old", "only on live"));
}

TEST_F(Promote, TakesASerialAfterEveryOneThatWasPublished) {
  ASSERT_EQ(site_.pack({"--serial=20"}).code, 0);
  write_text(site_.site(L"manifest.json"), read_text(site_.site(L"history\\live\\20.json")));
  ASSERT_EQ(site_.pack({"--serial=30"}).code, 0);
  for (const std::wstring ending : {L".json", L".sig"}) {
    write_text(site_.site(L"manifest" + ending), read_text(site_.site(L"history\\live\\20" + ending)));
  }
  ASSERT_EQ(promote().code, 0);
  EXPECT_EQ(site_.published().serial, 31);
}

TEST_F(Promote, KeepsMembersThatTheToolDoesNotKnow) {
  std::string manifest = read_text(site_.site(L"test\\manifest.json"));
  manifest.insert(manifest.find(" \"exe\""), " \"published\": \"today\",\n \"extra\": {\"b\": 1.5, \"a\": [null]},\n");
  write_text(site_.site(L"test\\manifest.json"), manifest);
  write_text(site_.site(L"test\\manifest.sig"), sign_manifest(manifest));
  write_text(site_.site(L"history\\test\\12.json"), manifest);
  ASSERT_EQ(promote().code, 0);
  std::string expected = manifest;
  expected.replace(expected.find("\"test\""), 6, "\"live\"");
  expected.replace(expected.find("\"serial\": 12"), 12, "\"serial\": 1");
  expected.replace(expected.find("{\"b\": 1.5, \"a\": [null]}"), 23, "{\n  \"b\": 1.5,\n  \"a\": [\n   null\n  ]\n }");
  EXPECT_EQ(read_text(site_.site(L"manifest.json")), expected);
}

TEST_F(Promote, HasNothingToDoWhenTheContentIsThere) {
  ASSERT_EQ(promote().code, 0);
  const FolderTree before = folder_tree(to_wide(folder_));
  const CommandResult result = promote();
  EXPECT_EQ(result.code, 4);
  EXPECT_EQ(result.messages, "kvxpublish: " + folder_ + "\\manifest.json: has the same content already\n");
  EXPECT_EQ(folder_tree(to_wide(folder_)), before);
}

// As after a program that was ended between the manifest and the signature of a channel's first release.
TEST_F(Promote, PublishesAgainWhatLaunchersRefuse) {
  ASSERT_EQ(promote().code, 0);
  remove_file(site_.site(L"manifest.sig"));
  const CommandResult result = promote();
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.data, "channel=live\nversion=1.1\nserial=2\nfiles=2\nbytes=17\nremovals=1\nkey=1ef5b9d93b368184\n");
  EXPECT_EQ(result.messages, site_.verify_hint());
  EXPECT_EQ(site_.published().serial, 2);
  EXPECT_EQ(promote().code, 4);
}

TEST_F(Promote, LeavesTheReleaseUnsignedForAVault) {
  const CommandResult result = promote({"--key=", "--unsigned"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data, "channel=live\nversion=1.1\nserial=1\nfiles=2\nbytes=17\nremovals=1\n");
  EXPECT_EQ(result.messages,
            "note: the release is not signed yet, and launchers refuse it until it is\nnext: kvxpublish digest \"" +
                folder_ + "\" --channel live\n");
  EXPECT_FALSE(exists(site_.site(L"manifest.sig")));
}

TEST_F(Promote, TrustsTheKeyThatItSignsWith) {
  const std::string keys = to_utf8(site_.path(L"keys"));
  ASSERT_EQ(kvxpublish({"keygen", "--out", keys}).code, 0);
  ASSERT_EQ(kvxpublish({"sign", folder_, "--channel=test", "--key", keys + "\\private_key.pem"}).code, 0);
  EXPECT_EQ(promote().code, 6);
  EXPECT_EQ(promote({"--key=" + keys + "\\private_key.pem"}).code, 0);
}

TEST_F(Promote, RefusesWithOneClearLineAndLeavesTheSiteAsItWas) {
  struct Refusal {
    const char* what;
    std::function<void()> prepare;
    std::vector<std::string> options;
    int code;
    std::string message;
  };
  const FolderTree whole = folder_tree(to_wide(folder_));
  const std::wstring content = site_.site(L"files\\" + to_wide(sha256_hex("the game")));
  for (const Refusal& refusal : std::vector<Refusal>{
           {"no key", [] {}, {"--key="}, 2, "sign the release with --key PEM, or leave that for later with --unsigned"},
           {"the same channel", [] {}, {"--to=test"}, 2, "--from and --to name the same channel; name two"},
           {"a channel in the place of the history",
            [] {},
            {"--to=history"},
            2,
            "the channel \"history\" would share a folder with the site's own files; choose another name"},
           {"no site", [] {}, {"--to-dir="}, 2, "--to-dir is required; see kvxpublish --help"},
           {"a channel that is none",
            [] {},
            {"--to=Live"},
            3,
            R"(launchers would refuse the channel "Live": a channel is 1 to 32 characters of a-z, 0-9, "-" and "_")"},
           {"no release to promote",
            [] {},
            {"--from=beta"},
            1,
            folder_ + "\\beta\\manifest.json: nothing is published on channel \"beta\"; publish a release, or name "
                      "another channel with --channel"},
           {"a key that is missing",
            [] {},
            {"--key=" + folder_ + "\\none.pem"},
            6,
            folder_ + "\\none.pem: there is no such key file"},
           {"an unsigned release",
            [&] { remove_file(site_.site(L"test\\manifest.sig")); },
            {},
            6,
            folder_ + "\\test\\manifest.sig: there is no signature, and launchers refuse the release without; sign it "
                      "first"},
           {"a release that somebody changed",
            [&] {
              write_text(site_.site(L"test\\manifest.json"), read_text(site_.site(L"test\\manifest.json")) + " ");
            },
            {},
            6,
            folder_ +
                "\\test\\manifest.sig: signature does not match the manifest; sign the release again, or name the "
                "keys that launchers know with --public-keys"},
           {"content that is missing",
            [&] { remove_file(content); },
            {},
            3,
            to_utf8(content) + ": is missing; publish the release there again, or pack it again"},
           {"a history that cannot be read",
            [&] { write_text(site_.site(L"history\\live\\7.json"), "{"); },
            {},
            3,
            folder_ + "\\history\\live\\7.json: launchers would refuse this release: expected string at offset 1"},
           {"a live release that cannot be read, without a history",
            [&] { write_text(site_.site(L"manifest.json"), "{"); },
            {},
            3,
            folder_ + "\\manifest.json: launchers would refuse this release: expected string at offset 1; there is no "
                      "history to go on from, so put a good release over it with kvxpublish publish --force"},
           {"a signature that would be taken away",
            [&] { ASSERT_EQ(site_.pack({"--version=0.1"}).code, 0); },
            {"--key=", "--unsigned"},
            6,
            folder_ + "\\manifest.sig: players could take no release until the new one is signed; sign it now with "
                      "--key, or work on a copy of the site and publish that; --yes takes the signature away all the "
                      "same"},
           {"a history that was changed",
            [&] {
              ASSERT_EQ(site_.pack({"--serial=3"}).code, 0);
              write_text(site_.site(L"history\\live\\4.json"), read_text(site_.site(L"history\\live\\3.json")));
            },
            {},
            1,
            folder_ + "\\history\\live\\4.json: holds serial 3; put back the file that was there"},
           {"a serial after which there is none",
            [&] { ASSERT_EQ(site_.pack({"--serial=9223372036854775807"}).code, 0); },
            {},
            5,
            "launchers know no serial after 9223372036854775807"},
           {"a file where an earlier release had a folder",
            [&] {
              write_text(site_.path(L"other\\data"), "a file");
              write_text(site_.path(L"other\\bin\\game.exe"), "the game");
              ASSERT_EQ(kvxpublish({"pack", to_utf8(site_.path(L"other")), "--out=" + folder_, "--channel=live",
                                    "--version=1", "--exe=bin/game.exe", key_})
                            .code,
                        0);
            },
            {},
            3,
            "\"data/a pack.bin\": its folder \"data\" was a file in an earlier release, and launchers cannot put a "
            "folder in its place; choose another name"},
       }) {
    SCOPED_TRACE(refusal.what);
    refusal.prepare();
    const FolderTree before = folder_tree(to_wide(folder_));
    const CommandResult result = promote(refusal.options);
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

}  // namespace
}  // namespace kvx::test
