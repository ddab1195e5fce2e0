#include "tools/kvxpublish/commands/verify.h"

#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/files.h"
#include "foundations/text.h"
#include "tests/support/scripted_server.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"
#include "tests/tools/kvxpublish/support/folder_tree.h"
#include "tests/tools/kvxpublish/support/publish_site.h"
#include "tools/kvxpublish/cli/problems.h"

namespace kvx::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

const std::string& game_digest() {
  static const std::string digest = sha256_hex("the game");
  return digest;
}

const std::string& pack_digest() {
  static const std::string digest = sha256_hex("some data");
  return digest;
}

// The file of a key that signs nothing here.
std::string strange_keys(const PublishSite& site) {
  const std::string made = kvxpublish({"keygen", "--out", to_utf8(site.path(L"keys"))}).data;
  const size_t start = made.find("public_line=") + 12;
  write_text(site.path(L"strange.txt"), made.substr(start, made.find('\n', start) - start) + "\n");
  return to_utf8(site.path(L"strange.txt"));
}

std::string publish_hint(const PublishSite& site, const std::string& channel = "live") {
  return "next: kvxpublish publish \"" + site.site_folder() + "\" --channel " + channel + " --to WEB_ROOT\n";
}

class Verify : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(site_.pack().code, 0); }

  [[nodiscard]] CommandResult verify(std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"verify", folder_});
    return kvxpublish(options);
  }

  void expect_refusal(const CommandResult& result, int code, const std::string& message) const {
    EXPECT_EQ(result.code, code);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_EQ(result.messages, "kvxpublish: " + message + "\n");
  }

  [[nodiscard]] std::string blob(const std::string& digest) const { return folder_ + "\\files\\" + digest; }

  PublishSite site_;
  std::string folder_ = site_.site_folder();
};

TEST_F(Verify, TellsWhatLaunchersWouldTake) {
  const FolderTree before = folder_tree(to_wide(folder_));
  const CommandResult result = verify();
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data,
            "channel=live\nversion=1.0\nserial=1\nkey=1ef5b9d93b368184\nkey_name=primary\nfiles=2\nbytes=17\n"
            "removals=0\ncontent_files=2\ncontent_bytes=17\nchecked=sizes\n");
  EXPECT_EQ(result.messages, publish_hint(site_));
  EXPECT_EQ(folder_tree(to_wide(folder_)), before);
}

TEST_F(Verify, LooksAtTheChannelThatIsNamed) {
  ASSERT_EQ(site_.pack({"--channel=test", "--version=7", "--key=" + development_key("backup")}).code, 0);
  const CommandResult result = verify({"--channel=test", "--full"});
  EXPECT_THAT(result.data, testing::StartsWith("channel=test\nversion=7\nserial=1\nkey=3b8a98b1ab900a55\n"
                                               "key_name=backup\n"));
  EXPECT_THAT(result.data, testing::EndsWith("checked=digests\n"));
  EXPECT_EQ(result.messages, publish_hint(site_, "test"));
}

TEST_F(Verify, RepeatsThePublicKeysInTheNextStep) {
  const std::string keys = to_utf8(development_public_keys());
  EXPECT_EQ(
      verify({"--public-keys=" + keys}).messages,
      "next: kvxpublish publish \"" + folder_ + "\" --channel live --to WEB_ROOT --public-keys \"" + keys + "\"\n");
}

TEST_F(Verify, CountsEqualContentOnceAndTheLauncher) {
  write_text(site_.game(L"copy.exe"), "the game");
  ASSERT_EQ(site_.pack({"--version=2", "--launcher=" + to_utf8(built_launcher())}).code, 0);
  FileStamp stamp;
  ASSERT_TRUE(file_stamp(built_launcher(), stamp));
  EXPECT_THAT(verify().data, HasSubstr("files=3\nbytes=25\nremovals=0\ncontent_files=3\ncontent_bytes=" +
                                       std::to_string(17 + stamp.size) + "\nlauncher=" + KVX_LAUNCHER_VERSION + "\n"));
}

TEST_F(Verify, NamesEachThingThatIsWrongInAFolder) {
  struct Case {
    const char* what;
    std::function<void()> spoil;
    std::vector<std::string> options;
    int code;
    std::string message;
  };
  const std::string signature_advice =
      "; sign the release again, or name the keys that launchers know with --public-keys";
  const std::string content_advice = "delete it and publish the release there again, or pack it again";
  const std::string manifest = read_text(site_.site(L"manifest.json"));
  const auto sign_and_put = [&](const std::string& text) {
    write_text(site_.site(L"manifest.json"), text);
    write_text(site_.site(L"manifest.sig"), sign_manifest(text));
  };
  for (const Case& c : std::vector<Case>{
           {"a channel without a release",
            [] {},
            {"--channel=test"},
            1,
            folder_ + "\\test\\manifest.json: nothing is published on channel \"test\"; publish a release, or name "
                      "another channel with --channel"},
           {"no signature",
            [&] { remove_file(site_.site(L"manifest.sig")); },
            {},
            6,
            folder_ + "\\manifest.sig: there is no signature, and launchers refuse the release without; sign it first"},
           {"one more blank in the manifest",
            [&] { write_text(site_.site(L"manifest.json"), manifest + " "); },
            {},
            6,
            folder_ + "\\manifest.sig: signature does not match the manifest" + signature_advice},
           {"text that is no manifest, and no signature of it",
            [&] { write_text(site_.site(L"manifest.json"), "{"); },
            {},
            6,
            folder_ + "\\manifest.sig: signature does not match the manifest" + signature_advice},
           {"another's key",
            [] {},
            {"--public-keys=" + strange_keys(site_)},
            6,
            folder_ + "\\manifest.sig: manifest is signed with an unknown key" + signature_advice},
           {"no key file",
            [] {},
            {"--public-keys=" + folder_ + "\\none"},
            6,
            folder_ + "\\none: there is no such key file"},
           {"a signed manifest that launchers refuse",
            [&] { sign_and_put(R"({"format":2})"); },
            {},
            3,
            folder_ + "\\manifest.json: launchers would refuse this release: manifest format 2 is not supported by "
                      "this launcher"},
           {"content that is missing",
            [&] { remove_file(site_.site(L"files\\" + to_wide(game_digest()))); },
            {},
            3,
            blob(game_digest()) + ": is missing; publish the release there again, or pack it again"},
           {"content that is too short",
            [&] { write_text(site_.site(L"files\\" + to_wide(game_digest())), "the gam"); },
            {},
            3,
            blob(game_digest()) + ": is damaged, with 7 bytes instead of 8; " + content_advice},
           {"content with other bytes",
            [&] { write_text(site_.site(L"files\\" + to_wide(game_digest())), "THE GAME"); },
            {"--full"},
            3,
            blob(game_digest()) + ": is damaged, its digest is not its name; " + content_advice},
       }) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(site_.pack({"--serial=1"}).code, 0);
    const FolderTree whole = folder_tree(to_wide(folder_));
    c.spoil();
    const FolderTree spoilt = folder_tree(to_wide(folder_));
    expect_refusal(verify(c.options), c.code, c.message);
    EXPECT_EQ(folder_tree(to_wide(folder_)), spoilt);
    for (const auto& [name, content] : whole) {
      if (!name.ends_with(L'\\')) write_text(site_.site(name), content);
    }
  }
}

TEST_F(Verify, ReadsTheContentOnlyWhenAsked) {
  write_text(site_.site(L"files\\" + to_wide(game_digest())), "THE GAME");
  EXPECT_EQ(verify().code, 0);
  EXPECT_EQ(verify({"--full"}).code, 3);
}

TEST_F(Verify, ListsAllThatIsWrongAtOnce) {
  remove_file(site_.site(L"files\\" + to_wide(game_digest())));
  remove_file(site_.site(L"files\\" + to_wide(pack_digest())));
  std::vector<std::string> missing = {game_digest(), pack_digest()};
  std::ranges::sort(missing);
  expect_refusal(verify(), 3,
                 folder_ + ": 2 things are wrong\n  " + blob(missing[0]) +
                     ": is missing; publish the release there again, or pack it again\n  " + blob(missing[1]) +
                     ": is missing; publish the release there again, or pack it again");
}

TEST_F(Verify, StopsWhenThePersonAsksForIt) {
  CapturedConsole console;
  console.stop_asked = [] { return true; };
  const CommandResult result = kvxpublish({"verify", folder_}, console);
  expect_refusal(result, 1, "stopped; nothing was changed");
}

TEST(ProblemsTest, ListsTwentyAndCountsTheRest) {
  publish::Problems problems;
  publish::Failure failure;
  EXPECT_TRUE(problems.settle("here", failure));
  for (int i = 10; i < 32; ++i) problems.add(publish::ExitCode::failed, "line " + std::to_string(i));
  EXPECT_FALSE(problems.settle("here", failure));
  std::string text = "here: 22 things are wrong";
  for (int i = 10; i < 30; ++i) text += "\n  line " + std::to_string(i);
  EXPECT_EQ(failure.text, text + "\n  and 2 more");
  EXPECT_EQ(failure.code, publish::ExitCode::failed);
}

TEST(ProblemsTest, EndsWithTheGravestCode) {
  using publish::ExitCode;
  struct Case {
    std::vector<ExitCode> codes;
    ExitCode gravest;
  };
  for (const Case& c : std::vector<Case>{
           {{ExitCode::failed, ExitCode::refused}, ExitCode::refused},
           {{ExitCode::refused, ExitCode::failed}, ExitCode::refused},
           {{ExitCode::failed, ExitCode::key, ExitCode::refused}, ExitCode::key},
       }) {
    publish::Problems problems;
    publish::Failure failure;
    for (const ExitCode code : c.codes) problems.add(code, "x");
    EXPECT_FALSE(problems.settle("here", failure));
    EXPECT_EQ(failure.code, c.gravest);
  }
}

// The same release on a server, as launchers see it.
class VerifyUrl : public Verify {
 protected:
  void SetUp() override {
    Verify::SetUp();
    for (const auto& [name, content] : folder_tree(to_wide(folder_))) {
      std::string path = to_utf8(name);
      std::ranges::replace(path, '\\', '/');
      if (!path.ends_with('/')) server_.serve(path, content);
    }
  }

  [[nodiscard]] CommandResult verify_url(std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"verify", base_});
    return kvxpublish(options);
  }

  ScriptedServer server_;
  std::string base_ = to_utf8(server_.base_url());
  std::string game_path_ = "files/" + game_digest();
  std::string pack_path_ = "files/" + pack_digest();  // the larger one
};

// An answer with exactly these headers.
ScriptedResponse raw(int status, const std::string& headers, const std::string& body) {
  return ScriptedResponse(status_line(status) + headers + "Connection: close\r\n\r\n" + body);
}

TEST_F(VerifyUrl, AsksAsLaunchersAsk) {
  const CommandResult result = verify_url({"--full"});
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data,
            "channel=live\nversion=1.0\nserial=1\nkey=1ef5b9d93b368184\nkey_name=primary\nfiles=2\nbytes=17\n"
            "removals=0\ncontent_files=2\ncontent_bytes=17\nchecked=digests\n");
  EXPECT_THAT(result.messages, IsEmpty());
  const std::vector<RecordedRequest> requests = server_.requests_for(game_path_);
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].header("Range"), "bytes=7-");
  EXPECT_EQ(requests[1].header("Range"), std::nullopt);
  for (const RecordedRequest& request : server_.requests_for("manifest.json")) {
    EXPECT_EQ(request.header("Cache-Control"), "no-cache");
  }
}

TEST_F(VerifyUrl, FetchesNoContentUnlessAskedButForTheHeadersOfTheLargest) {
  ASSERT_EQ(verify_url().code, 0);
  EXPECT_EQ(server_.requests_for(game_path_).size(), 1U);
  ASSERT_EQ(server_.requests_for(pack_path_).size(), 2U);
  EXPECT_EQ(server_.requests_for(pack_path_)[1].header("Range"), std::nullopt);
}

TEST_F(VerifyUrl, TakesEmptyContent) {
  write_text(site_.game(L"empty"), "");
  ASSERT_EQ(site_.pack({"--version=2"}).code, 0);
  server_.serve("manifest.json", read_text(site_.site(L"manifest.json")));
  server_.serve("manifest.sig", read_text(site_.site(L"manifest.sig")));
  server_.serve("files/" + sha256_hex(""), "");
  const CommandResult result = verify_url({"--full"});
  EXPECT_EQ(result.code, 0) << result.messages;
}

TEST_F(VerifyUrl, NamesEachThingThatIsWrongOnAServer) {
  struct Case {
    const char* what;
    std::string path;
    std::vector<ScriptedResponse> answers;
    std::vector<std::string> options;
    int code;
    std::string message;  // what follows the URL
  };
  const std::string plain = "; let the server send plain files itself";
  const std::string damaged = "; delete it and publish the release there again, or pack it again";
  const ScriptedResponse part = raw(206, "Content-Range: bytes 8-8/9\r\nContent-Length: 1\r\n", "a");
  const std::string manifest = read_text(site_.site(L"manifest.json"));
  for (const Case& c : std::vector<Case>{
           {"nothing there",
            game_path_,
            {answer(404)},
            {},
            3,
            " (HTTP 404): is missing; publish the release there again, or pack it again"},
           {"nothing that may be read",
            game_path_,
            {answer(403)},
            {},
            3,
            " (HTTP 403): is missing; publish the release there again, or pack it again"},
           {"a server that is ill", game_path_, {answer(503)}, {}, 1, ": the server answers HTTP 503"},
           {"no ranges",
            game_path_,
            {answer(200, "the game")},
            {},
            3,
            ": the server ignores ranges, and interrupted downloads begin again from the start; switch them on for "
            "plain files"},
           {"a range that is rejected",
            game_path_,
            {answer(416)},
            {},
            3,
            ": the server rejects a range within the file (HTTP 416); let it send plain files itself"},
           {"shorter content",
            game_path_,
            {answer(416, "", "Content-Range: bytes */5\r\n")},
            {},
            3,
            ": is damaged, with 5 bytes instead of 8" + damaged},
           {"longer content",
            game_path_,
            {raw(206, "Content-Range: bytes 7-9/10\r\nContent-Length: 3\r\n", "abc")},
            {},
            3,
            ": is damaged, with 10 bytes instead of 8" + damaged},
           {"a part without a range",
            game_path_,
            {raw(206, "Content-Length: 1\r\n", "e")},
            {},
            3,
            ": a part is sent without a Content-Range" + plain},
           {"another part",
            game_path_,
            {raw(206, "Content-Range: bytes 0-7/8\r\nContent-Length: 8\r\n", "the game")},
            {},
            3,
            ": the part from byte 7 is sent with the Content-Range \"bytes 0-7/8\"" + plain},
           {"another length of the part",
            game_path_,
            {raw(206, "Content-Range: bytes 7-7/8\r\n", "e")},
            {},
            3,
            ": the part from byte 7 is sent with the Content-Length \"\" instead of 1" + plain},
           {"a coded part",
            game_path_,
            {raw(206, "Content-Range: bytes 7-7/8\r\nContent-Length: 1\r\nContent-Encoding: gzip\r\n", "e")},
            {},
            3,
            ": is sent with the content coding \"gzip\", which launchers do not undo; switch compression off for the "
            "site"},
           {"a coded whole",
            pack_path_,
            {part, answer(200, "some data", "Content-Encoding: br\r\n")},
            {},
            3,
            ": is sent with the content coding \"br\", which launchers do not undo; switch compression off for the "
            "site"},
           {"a whole without a length",
            pack_path_,
            {part, answer_without_length(200, "some data")},
            {},
            3,
            ": is sent without a Content-Length; let the server send it as a plain file"},
           {"a whole of another length",
            pack_path_,
            {part, answer(200, "some dat")},
            {},
            3,
            ": is damaged, with 8 bytes instead of 9" + damaged},
           {"other bytes",
            pack_path_,
            {part, answer(200, "SOME DATA")},
            {"--full"},
            3,
            ": is damaged, its digest is not its name" + damaged},
           {"a coded manifest",
            "manifest.json",
            {answer(200, manifest), answer(200, manifest, "Content-Encoding: gzip\r\n")},
            {},
            3,
            ": is sent with the content coding \"gzip\", which launchers do not undo; switch compression off for the "
            "site"},
           {"a manifest without a length",
            "manifest.json",
            {answer(200, manifest), answer_without_length(200, manifest)},
            {},
            3,
            ": is sent without a Content-Length; let the server send it as a plain file"},
           {"no manifest",
            "manifest.json",
            {answer(404)},
            {},
            1,
            ": nothing is published on channel \"live\"; publish a release, or name another channel with --channel"},
           {"no signature",
            "manifest.sig",
            {answer(404), answer(404)},
            {},
            6,
            ": there is no signature, and launchers refuse the release without; sign it first"},
       }) {
    SCOPED_TRACE(c.what);
    server_.script(c.path, c.answers);
    expect_refusal(verify_url(c.options), c.code, base_ + c.path + c.message);
    EXPECT_EQ(verify_url({"--full"}).code, 0);  // all answers were used
  }
}

TEST_F(VerifyUrl, TellsOfACodingThatMayBeWhyTheSignatureDoesNotMatch) {
  server_.always("manifest.json", answer(200, "{coded", "Content-Encoding: gzip\r\n"));
  expect_refusal(verify_url(), 6,
                 base_ + ": 2 things are wrong\n  " + base_ +
                     "manifest.json: is sent with the content coding \"gzip\", which launchers do not undo; switch "
                     "compression off for the site\n  " +
                     base_ +
                     "manifest.sig: signature does not match the manifest; sign the release again, or name the keys "
                     "that launchers know with --public-keys");
}

TEST_F(VerifyUrl, LooksOnceMoreWhenAReleaseIsJustBeingReplaced) {
  server_.script("manifest.json", {answer(200, "the release before")});
  const CommandResult result = verify_url();
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(server_.requests_for("manifest.sig").size(), 3U);  // two for the release, one for the headers
}

TEST_F(VerifyUrl, TellsOfAServerThatAnswersEverythingWithAPage) {
  for (const std::string path : {"manifest.json", "manifest.sig"}) {
    server_.always(path, answer(200, "\n<!DOCTYPE html><title>Welcome</title>"));
  }
  expect_refusal(verify_url(), 3,
                 base_ +
                     "manifest.json: is no JSON; the server answers with some page of its own, so check the URL, and "
                     "that the site was uploaded there");
}

TEST_F(VerifyUrl, NotesThatCachesMayKeepWhatChanges) {
  const std::string manifest = read_text(site_.site(L"manifest.json"));
  const auto note = [&](const std::string& caching) {
    return "note: " + base_ + "manifest.json: is sent with the Cache-Control \"" + caching +
           "\", so that players can get old releases from caches; let the server send \"no-cache\"\n";
  };
  for (const auto& [caching, is_noted] : std::vector<std::pair<std::string, bool>>{
           {"public, max-age=31536000", true},
           {"Immutable", true},
           {"Max-Age=60", true},
           {"max-age=0", false},
           {"no-cache", false},
           {"max-age=60, no-cache", false},
           {"no-store", false},
       }) {
    SCOPED_TRACE(caching);
    server_.always("manifest.json", answer(200, manifest, "Cache-Control: " + caching + "\r\n"));
    const CommandResult result = verify_url();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.messages, is_noted ? note(caching) : "");
  }
}

TEST_F(VerifyUrl, SaysThatThereIsNoServer) {
  server_.stop();
  const CommandResult result = verify_url();
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.messages, testing::StartsWith("kvxpublish: " + base_ + "manifest.json: "));
}

TEST_F(VerifyUrl, RefusesUrlsThatLaunchersRefuse) {
  expect_refusal(kvxpublish({"verify", "http://updates.example.org/patch"}), 2,
                 "http://updates.example.org/patch/: plain HTTP is only allowed for a local test server (127.0.0.1 / "
                 "localhost)");
}

}  // namespace
}  // namespace kvx::test
