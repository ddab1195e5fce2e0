// pack --previous: serial, removals, and releases that bring nothing new.
#include <windows.h>

#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/files.h"
#include "foundations/text.h"
#include "tests/support/scripted_server.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PackPrevious : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(site_.pack().code, 0); }

  // `pack` of the next release on the same site.
  [[nodiscard]] CommandResult pack_next(std::vector<std::string> more = {}) const {
    more.push_back(previous_);
    return site_.pack(more);
  }

  PublishSite site_;
  std::string previous_ = "--previous=" + site_.site_folder();
};

TEST_F(PackPrevious, DeletesWhatTheReleaseBeforeHadAndThisOneHasNot) {
  site_.remove_from_game(L"data\\a pack.bin");
  write_text(site_.game(L"data\\new.bin"), "new");
  const CommandResult result = pack_next();
  ASSERT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.messages, site_.verify_hint());
  EXPECT_EQ(site_.published().serial, 2);
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("data/a pack.bin"));
}

TEST_F(PackPrevious, CarriesRemovalsOnForPlayersWhoSkipReleases) {
  write_text(site_.game(L"b"), "b");
  ASSERT_EQ(pack_next().code, 0);
  site_.remove_from_game(L"data\\a pack.bin");
  ASSERT_EQ(pack_next().code, 0);
  site_.remove_from_game(L"b");
  ASSERT_EQ(pack_next().code, 0);
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("b", "data/a pack.bin"));
  // What comes back is deleted no more.
  write_text(site_.game(L"DATA\\A Pack.bin"), "some data");
  ASSERT_EQ(pack_next().code, 0);
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("b"));
}

TEST_F(PackPrevious, KeepsAFileWhoseNameOnlyChangesItsCase) {
  site_.remove_from_game(L"data\\a pack.bin");
  write_text(site_.game(L"data\\A PACK.BIN"), "some data");
  ASSERT_EQ(pack_next().code, 0);
  EXPECT_THAT(removals_of(site_.published()), IsEmpty());
}

TEST_F(PackPrevious, AddsTheRemovalsOfTheCommandLine) {
  site_.remove_from_game(L"data\\a pack.bin");
  ASSERT_EQ(pack_next({"--remove=old\\x", "--remove=Data/A pack.bin"}).code, 0);
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("Data/A pack.bin", "old/x"));
}

TEST_F(PackPrevious, TakesTheReleaseOfItsOwnChannel) {
  ASSERT_EQ(site_.pack({"--channel=test", "--serial=9", "--remove=gone"}).code, 0);
  ASSERT_EQ(pack_next({"--channel=test", "--version=2"}).code, 0);
  EXPECT_EQ(site_.published("test").serial, 10);
  EXPECT_THAT(removals_of(site_.published("test")), ElementsAre("gone"));
}

TEST_F(PackPrevious, FindsThatThereIsNothingToDo) {
  ASSERT_EQ(pack_next({"--version=2", "--arg=-x", "--remove=gone", "--min-free-disk=5"}).code, 0);
  const auto before = site_.snapshot();
  const std::vector<std::string> same = {"--version=2", "--arg=-x", "--min-free-disk=5"};
  const CommandResult result = pack_next(same);
  EXPECT_EQ(result.code, 4);
  EXPECT_THAT(result.data, IsEmpty());
  EXPECT_EQ(result.messages,
            "kvxpublish: " + site_.site_folder() + "\\manifest.json: has the same content already, as serial 2\n");
  EXPECT_EQ(site_.snapshot(), before);
}

TEST_F(PackPrevious, FindsEveryChangeThatPlayersCanSee) {
  write_text(site_.path(L"notes.txt"), "New");
  const std::string launcher = "--launcher=" + to_utf8(built_launcher());
  struct Case {
    const char* what;
    std::vector<std::string> options;
    std::wstring file;
    std::string content;
  };
  for (const Case& c : std::vector<Case>{
           {"version", {"--version=1.0.1"}, L"", ""},
           {"start program", {"--exe=data/a pack.bin"}, L"", ""},
           {"arguments", {"--arg=x"}, L"", ""},
           {"notes", {"--notes=" + to_utf8(site_.path(L"notes.txt"))}, L"", ""},
           {"free disk", {"--min-free-disk=1"}, L"", ""},
           {"a removal", {"--remove=x"}, L"", ""},
           {"launcher", {launcher}, L"", ""},
           {"content of the same size", {}, L"data\\a pack.bin", "SOME DATA"},
           {"content of another size", {}, L"data\\a pack.bin", "other"},
           {"a new file", {}, L"data\\new.bin", "some data"},
           {"a name", {}, L"data\\A pack.bin", ""},
       }) {
    SCOPED_TRACE(c.what);
    const PublishSite site;
    ASSERT_EQ(site.pack().code, 0);
    std::vector<std::string> options = c.options;
    options.push_back("--previous=" + site.site_folder());
    if (c.content.empty() && !c.file.empty()) {
      ASSERT_TRUE(MoveFileW(site.game(c.file).c_str(), site.game(L"moved").c_str()));
      ASSERT_TRUE(MoveFileW(site.game(L"moved").c_str(), site.game(c.file).c_str()));
    } else if (!c.file.empty()) {
      write_text(site.game(c.file), c.content);
    }
    const CommandResult result = site.pack(options);
    EXPECT_EQ(result.code, 0) << result.messages;
    EXPECT_EQ(site.published().serial, 2);
  }
}

TEST_F(PackPrevious, TakesASerialAfterEveryOneOfTheHistory) {
  ASSERT_EQ(site_.pack({"--serial=30", "--version=2"}).code, 0);
  for (const std::wstring ending : {L".json", L".sig"}) {
    write_text(site_.site(L"manifest" + ending), read_text(site_.site(L"history\\live\\1" + ending)));
  }
  const CommandResult refused = site_.pack({"--serial=29", "--version=3"});
  EXPECT_EQ(refused.code, 5);
  EXPECT_EQ(refused.messages, "kvxpublish: serial 29 is not larger than 30, which " +
                                  to_utf8(site_.site(L"history\\live\\30.json")) +
                                  " has; leave --serial out to take the next\n");
  ASSERT_EQ(pack_next({"--version=3"}).code, 0);
  EXPECT_EQ(site_.published().serial, 31);
}

TEST_F(PackPrevious, RefusesASerialThatDoesNotFollow) {
  ASSERT_EQ(pack_next({"--version=1.1"}).code, 0);  // serial 2
  const PublishSite elsewhere;
  for (const std::string serial : {"1", "2"}) {
    const CommandResult result = elsewhere.pack({previous_, "--serial=" + serial});
    EXPECT_EQ(result.code, 5);
    EXPECT_EQ(result.messages, "kvxpublish: serial " + serial + " is not larger than 2, which " + site_.site_folder() +
                                   "\\manifest.json has; leave --serial out to take the next\n");
    EXPECT_FALSE(exists(elsewhere.site(L"")));
  }
  EXPECT_EQ(elsewhere.pack({previous_, "--serial=3"}).code, 0);
}

TEST_F(PackPrevious, TakesTheNextSerialOfBothSites) {
  const PublishSite elsewhere;
  ASSERT_EQ(elsewhere.pack({"--serial=20"}).code, 0);
  ASSERT_EQ(elsewhere.pack({previous_, "--version=2"}).code, 0);
  EXPECT_EQ(elsewhere.published().serial, 21);
}

TEST_F(PackPrevious, KnowsTheLastSerial) {
  ASSERT_EQ(pack_next({"--version=2", "--serial=9223372036854775807"}).code, 0);
  const CommandResult result = pack_next({"--version=3"});
  EXPECT_EQ(result.code, 5);
  EXPECT_EQ(result.messages, "kvxpublish: launchers know no serial after 9223372036854775807\n");
}

TEST_F(PackPrevious, SaysThatThereIsNoReleaseBefore) {
  const CommandResult other_channel = pack_next({"--channel=test"});
  EXPECT_EQ(other_channel.code, 1);
  EXPECT_EQ(other_channel.messages,
            "kvxpublish: " + site_.site_folder() +
                "\\test\\manifest.json: there is no release before this one; leave --previous out for the first of a "
                "channel\n");
  EXPECT_FALSE(exists(site_.site(L"test")));
}

TEST_F(PackPrevious, UsesNoManifestThatLaunchersWouldRefuse) {
  const std::wstring other = site_.path(L"other");
  write_text(other + L"\\manifest.json", R"({"format":1})");
  const CommandResult result = site_.pack({"--previous=" + to_utf8(other), "--trust-unsigned-previous"});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.messages, "kvxpublish: " + to_utf8(other) +
                                 "\\manifest.json: launchers would refuse this release: missing \"product\"\n");
}

TEST_F(PackPrevious, SignsNothingThatFollowsFromAReleaseOfNobodyTrusted) {
  const PublishSite other;
  const std::string folder = other.site_folder();
  const std::string key_folder = to_utf8(other.path(L"keys"));
  ASSERT_EQ(kvxpublish({"keygen", "--out", key_folder}).code, 0);
  const std::string strange_key = key_folder + "\\private_key.pem";
  const std::string advice = "; sign the release again, or name the keys that launchers know with --public-keys";
  struct Case {
    const char* what;
    std::string key;
    std::vector<std::string> options;
    std::string message;
  };
  for (const Case& c : std::vector<Case>{
           {"unsigned",
            "",
            {},
            "there is no signature, and launchers refuse the release without; sign it first, or take it as it is with "
            "--trust-unsigned-previous"},
           {"another's signature", strange_key, {}, "manifest is signed with an unknown key" + advice},
           {"another's signature, and an unsigned one would do",
            strange_key,
            {"--trust-unsigned-previous"},
            "manifest is signed with an unknown key" + advice},
       }) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(other.pack({"--serial=900", "--remove=precious", "--key=" + c.key}).code, 0);
    const auto before = site_.snapshot();
    std::vector<std::string> options = {"--previous=" + folder};
    options.insert(options.end(), c.options.begin(), c.options.end());
    const CommandResult result = site_.pack(options);
    EXPECT_EQ(result.code, 6);
    EXPECT_EQ(result.messages, "kvxpublish: " + folder + "\\manifest.sig: " + c.message + "\n");
    EXPECT_EQ(site_.snapshot(), before);
  }
}

TEST_F(PackPrevious, TakesAReleaseThatTheNamedKeysOrItsOwnKeySigned) {
  const std::string key_folder = to_utf8(site_.path(L"keys"));
  const CommandResult made = kvxpublish({"keygen", "--out", key_folder});
  const size_t at = made.data.find("public_line=") + 12;
  write_text(site_.path(L"keys.txt"), made.data.substr(at, made.data.find('\n', at) - at) + "\n");
  const std::string key = "--key=" + key_folder + "\\private_key.pem";
  ASSERT_EQ(site_.pack({key, "--version=2"}).code, 0);
  EXPECT_EQ(pack_next({key, "--version=3"}).code, 0);
  EXPECT_EQ(pack_next({"--version=4"}).code, 6);
  EXPECT_EQ(pack_next({"--version=4", "--public-keys=" + to_utf8(site_.path(L"keys.txt"))}).code, 0);
}

TEST_F(PackPrevious, TakesAnUnsignedReleaseOfAFolderWhenTold) {
  ASSERT_EQ(site_.pack({"--key=", "--version=2", "--remove=gone"}).code, 0);
  const CommandResult result = pack_next({"--version=3", "--trust-unsigned-previous"});
  ASSERT_EQ(result.code, 0) << result.messages;
  EXPECT_THAT(removals_of(site_.published()), ElementsAre("gone"));
}

// As after a program that was ended between the manifest and the signature.
TEST_F(PackPrevious, PacksTheSameContentAgainWhenOnlyTheNewReleaseIsSigned) {
  ASSERT_TRUE(DeleteFileW(site_.site(L"manifest.sig").c_str()));
  const CommandResult same = pack_next({"--trust-unsigned-previous", "--key="});
  EXPECT_EQ(same.code, 4);
  EXPECT_EQ(same.messages,
            "kvxpublish: " + site_.site_folder() + "\\manifest.json: has the same content already, as serial 1\n");
  const CommandResult result = pack_next({"--trust-unsigned-previous"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(site_.published().serial, 2);
}

TEST_F(PackPrevious, RefusesToTurnAFileIntoAFolder) {
  site_.remove_from_game(L"data\\a pack.bin");
  write_text(site_.game(L"data"), "a file now");
  const auto before = site_.snapshot();
  const CommandResult result = pack_next();
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.messages,
            "kvxpublish: \"data\": was a folder in an earlier release, and launchers cannot put a file in its place; "
            "choose another name\n");
  EXPECT_EQ(site_.snapshot(), before);
}

TEST_F(PackPrevious, TellsWhenTheLauncherIsLeftOutOrOlder) {
  const std::string launcher = "--launcher=" + to_utf8(built_launcher());
  ASSERT_EQ(pack_next({launcher}).code, 0);
  EXPECT_EQ(pack_next({"--version=2"}).messages, "note: the release before hands out launcher " KVX_LAUNCHER_VERSION
                                                 " and this one none; add --launcher to keep it\n" +
                                                     site_.verify_hint());
  std::string manifest = read_text(site_.site(L"history\\live\\2.json"));
  const std::string version = "\"version\": \"" KVX_LAUNCHER_VERSION "\"";
  const size_t at = manifest.find(version, manifest.find("\"launcher\""));
  ASSERT_NE(at, std::string::npos);
  manifest.replace(at, version.size(), R"("version": "99")");
  write_text(site_.path(L"other\\manifest.json"), manifest);
  const std::string other = "--previous=" + to_utf8(site_.path(L"other"));
  EXPECT_EQ(site_.pack({launcher, other, "--trust-unsigned-previous", "--version=3"}).messages,
            "note: launcher " KVX_LAUNCHER_VERSION
            " is older than 99 of the release before, and launchers never go back\n" +
                site_.verify_hint());
}

class PackPreviousUrl : public PackPrevious {
 protected:
  void SetUp() override {
    PackPrevious::SetUp();
    server_.serve("manifest.json", read_text(site_.site(L"manifest.json")));
    server_.serve("manifest.sig", read_text(site_.site(L"manifest.sig")));
  }

  [[nodiscard]] std::string url(const std::string& path = {}) const { return to_utf8(server_.url(path)); }

  ScriptedServer server_;
  PublishSite elsewhere_;
};

TEST_F(PackPreviousUrl, ReadsTheReleaseBeforeFromAServer) {
  elsewhere_.remove_from_game(L"data\\a pack.bin");
  // The slash at the end may be left out, as in a launcher's own setting.
  const std::string without_slash = url().substr(0, url().size() - 1);
  const CommandResult result = elsewhere_.pack({"--previous=" + without_slash});
  ASSERT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(elsewhere_.published().serial, 2);
  EXPECT_THAT(removals_of(elsewhere_.published()), ElementsAre("data/a pack.bin"));
}

TEST_F(PackPreviousUrl, FindsNothingToDoAndWritesNothing) {
  const CommandResult result = elsewhere_.pack({"--previous=" + url()});
  EXPECT_EQ(result.code, 4);
  EXPECT_EQ(result.messages, "kvxpublish: " + url("manifest.json") + ": has the same content already, as serial 1\n");
  EXPECT_FALSE(exists(elsewhere_.site(L"")));
}

TEST_F(PackPreviousUrl, SaysWhyTheServerCannotBeUsed) {
  struct Case {
    const char* what;
    std::string previous;
    int code;
    std::string message;
  };
  server_.always("broken/manifest.json", answer(503));
  server_.always("page/manifest.json", answer(200, "<html></html>"));
  server_.always("page/manifest.sig", answer(200, "<html></html>"));
  server_.serve("unsigned/manifest.json", read_text(site_.site(L"manifest.json")));
  server_.serve("other/manifest.json", read_text(site_.site(L"manifest.json")) + " ");
  server_.serve("other/manifest.sig", read_text(site_.site(L"manifest.sig")));
  for (const Case& c : std::vector<Case>{
           {"no release", url("none/"), 1,
            url("none/manifest.json") +
                ": there is no release before this one; leave --previous out for the first of a channel"},
           {"a server that fails", url("broken/"), 1, url("broken/manifest.json") + ": HTTP 503"},
           {"an unsigned release", url("unsigned/"), 6,
            url("unsigned/manifest.sig") +
                ": there is no signature, and launchers refuse the release without; sign it first"},
           {"another release's signature", url("other/"), 6,
            url("other/manifest.sig") +
                ": signature does not match the manifest; sign the release again, or name the keys that launchers know "
                "with --public-keys"},
           {"plain http elsewhere", "http://example.org/", 2,
            "http://example.org/: plain HTTP is only allowed for a local test server (127.0.0.1 / localhost)"},
           {"a server that answers with a page", url("page/"), 3,
            url("page/manifest.json") +
                ": is no JSON; the server answers with some page of its own, so check the URL, and that the site was "
                "uploaded there"},
           {"another scheme", "ftp://example.org/", 2, "ftp://example.org/: unsupported URL scheme"},
       }) {
    SCOPED_TRACE(c.what);
    const CommandResult result = elsewhere_.pack({"--previous=" + c.previous});
    EXPECT_EQ(result.code, c.code);
    EXPECT_EQ(result.messages, "kvxpublish: " + c.message + "\n");
    EXPECT_FALSE(exists(elsewhere_.site(L"")));
  }
}

TEST_F(PackPreviousUrl, TrustsNoUnsignedReleaseOfAServer) {
  const CommandResult result = elsewhere_.pack({"--previous=" + url(), "--trust-unsigned-previous"});
  EXPECT_EQ(result.code, 2);
  EXPECT_EQ(result.messages,
            "kvxpublish: --trust-unsigned-previous is for a folder; what comes from a server must be signed\n");
  EXPECT_FALSE(exists(elsewhere_.site(L"")));
}

}  // namespace
}  // namespace kvx::test
