// Runs for which the server has no release that may be used: they say why, and offer the game that is installed.
#include <windows.h>

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <ostream>

#include "foundations/error_text.h"
#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/support/signing_keys.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

const std::wstring not_installed =
    L"\n\nKVX is not installed in this folder yet, so it cannot be started.\nPlease check your internet connection and "
    L"try again later.";
const std::wstring version_will_start = L"\n\nThe installed version 1.0 will be started.";
const std::wstring game_will_start = L"\n\nThe installed game will be started.";
const std::wstring unfinished =
    L"\n\nWarning: the last update did not finish. The game may not work correctly until the next successful update.";

const std::string nothing_published = "No game version is published on the update server for channel \"live\".";
constexpr char unknown_format[] = "signature file has an unknown format";
constexpr char unknown_key[] = "manifest is signed with an unknown key";
constexpr char no_match[] = "signature does not match the manifest";

std::string cannot_connect(const std::string& reason) {
  return "Could not connect to the update server.\n(" + reason + ")";
}

std::string failed_security_check(const std::string& reason) {
  return "The update information from the server failed the security check (" + reason + ") and was ignored.";
}

std::string no_usable_information(int code, const std::string& message) {
  return "no usable update information (code " + std::to_string(code) + "): " + message;
}

ReleaseBuilder release_with_arguments() {
  return ReleaseBuilder()
      .version("1.0")
      .serial(1)
      .file("bin/game.exe", test_program_bytes())
      .file("data/a.txt", "a of 1.0")
      .arg("first one")
      .arg("--second");
}

std::string signature_by_a_stranger() {
  std::string signature = sign_manifest(release_with_arguments().json());
  signature.replace(8, 8, "stranger");
  return signature;
}

std::string signature_of_other_bytes() { return sign_manifest(release_with_arguments().json() + " "); }

// ---- What a server may do, and what the player hears of it.

struct Trouble {
  std::string name;
  std::function<void(ScriptedServer&)> happens;
  int code = 0;
  std::string message;
  std::vector<std::string> log;  // before the line that repeats the message
  std::vector<std::string> requests;
};

void PrintTo(const Trouble& trouble, std::ostream* out) { *out << trouble.name; }

std::vector<std::string> three_times(const std::vector<std::string>& once) {
  std::vector<std::string> all;
  for (int i = 0; i < 3; ++i) all.insert(all.end(), once.begin(), once.end());
  return all;
}

std::vector<std::string> three_failed_checks(const std::string& reason) {
  return {"manifest signature check FAILED (attempt 1): " + reason,
          "manifest signature check FAILED (attempt 2): " + reason,
          "manifest signature check FAILED (attempt 3): " + reason};
}

Trouble untrusted(const std::string& name, const char* reason, const std::function<std::string()>& signature) {
  return {name,
          [signature](ScriptedServer& server) { server.serve("manifest.sig", signature()); },
          20,
          failed_security_check(reason),
          three_failed_checks(reason),
          three_times({"manifest.json", "manifest.sig"})};
}

std::vector<Trouble> troubles() {
  return {
      {"NobodyListens",
       [](ScriptedServer& server) { server.stop(); },
       10,
       cannot_connect("*: could not connect to the server"),
       {"manifest fetch failed (attempt 1): *: could not connect to the server",
        "manifest fetch failed (attempt 2): *: could not connect to the server"},
       {}},
      {"Reset",
       [](ScriptedServer& server) { server.always("manifest.json", ScriptedResponse().reset()); },
       10,
       cannot_connect("receive: *"),
       {"manifest fetch failed (attempt 1): receive: *", "manifest fetch failed (attempt 2): receive: *"},
       {"manifest.json", "manifest.json"}},
      {"Unavailable", [](ScriptedServer& server) { server.always("manifest.json", answer(503)); }, 10,
       cannot_connect("HTTP 503"), three_times({"manifest fetch: HTTP 503"}), three_times({"manifest.json"})},
      {"Unsigned",
       [](ScriptedServer& server) { server.remove("manifest.sig"); },
       10,
       cannot_connect("manifest.sig: HTTP 404"),
       {"signature fetch failed (attempt 1): manifest.sig: HTTP 404",
        "signature fetch failed (attempt 2): manifest.sig: HTTP 404",
        "signature fetch failed (attempt 3): manifest.sig: HTTP 404"},
       three_times({"manifest.json", "manifest.sig"})},
      {"Unpublished",
       [](ScriptedServer& server) { server.remove("manifest.json"); },
       10,
       nothing_published,
       {},
       {"manifest.json"}},
      untrusted("SignedInAnUnknownFormat", unknown_format,
                [] { return sign_manifest(release_with_arguments().json()) + "1"; }),
      untrusted("SignedByAStranger", unknown_key, signature_by_a_stranger),
      untrusted("SignedForOtherBytes", no_match, signature_of_other_bytes),
  };
}

class ServerTrouble : public TableInBothWays<Trouble> {};
KVX_TELL_ROWS_IN_BOTH_WAYS(ServerTrouble, troubles());

TEST_P(ServerTrouble, StartsTheInstalledGameAndStillSaysWhyItIsNotUpdated) {
  given_installed(release_with_arguments());
  row().happens(server_);
  when_started();
  then_asks(confirm_prompt(to_wide(row().message) + version_will_start), IDOK);
  then_ends(row().code, launched, row().message);
  std::vector<std::string> log = row().log;
  log.push_back(no_usable_information(row().code, row().message));
  log.push_back("started " + to_utf8(in_folder(L"bin\\game.exe")) + " (pid *)");
  then_the_log_says(log);
  then_requests_are(row().requests);
  then_game_was_started_with({"first one", "--second"});
  then_game_is(files_of(release_with_arguments()));
  then_staged_is({});
  then_state_is(installed_state("1.0", "1"));
}

// ---- The ways to the installed game, with a server that publishes nothing.

class WithoutUpdate : public InBothWays {
 protected:
  void given_nothing_is_published_any_more() {
    server_.remove("manifest.json");
    server_.remove("manifest.sig");
  }

  static std::wstring published_nothing() { return to_wide(nothing_published); }
};
KVX_TELL_IN_BOTH_WAYS(WithoutUpdate);

TEST_P(WithoutUpdate, NothingInstalledIsSaidOnce) {
  struct Case {
    const char* name;
    std::function<void(ScriptedServer&)> happens;
    int code;
    std::string message;
    std::vector<std::string> log;
  };
  for (const Case& c :
       {Case{"unpublished", [](ScriptedServer&) {}, 10, nothing_published, {}},
        {"unreadable",
         [](ScriptedServer& server) {
           server.serve("manifest.json", "");
           server.serve("manifest.sig", sign_manifest(""));
         },
         21,
         "The update information from the server could not be read (unexpected end at offset 0).",
         {"manifest: 0 bytes, signature OK (key primary)"}},
        {"untrusted", [](ScriptedServer& server) { server.serve("manifest.sig", signature_of_other_bytes()); }, 20,
         failed_security_check(no_match), three_failed_checks(no_match)}}) {
    SCOPED_TRACE(c.name);
    c.happens(server_);
    when_started();
    then_asks(error_prompt(to_wide(c.message) + not_installed), IDOK);
    then_ends(c.code, not_launched, c.message);
    std::vector<std::string> log = c.log;
    log.push_back(no_usable_information(c.code, c.message));
    log.emplace_back("installed manifest unusable: *");
    then_the_log_says(log);
    then_game_is({});
    then_state_is({});
    then_staged_is({});
  }
}

TEST_P(WithoutUpdate, ANamedChannelIsNamedAndStillRemembered) {
  given_installed(release_with_arguments());
  when_started(L"--channel=beta");
  const std::string message = "No game version is published on the update server for channel \"beta\".";
  then_asks(confirm_prompt(to_wide(message) + version_will_start), IDOK);
  then_ends(10, launched, message);
  then_the_log_says({no_usable_information(10, message), "started *"}, "beta");
  then_requests_are({"beta/manifest.json"});
  std::map<std::string, std::string> state = installed_state("1.0", "1");
  state["channel"] = "beta";
  then_state_is(state);
}

TEST_P(WithoutUpdate, WithNoLaunchTheInstalledGameIsNotStarted) {
  given_installed(release_with_arguments());
  given_nothing_is_published_any_more();
  when_started(L"--no-launch");
  then_asks(confirm_prompt(published_nothing() + version_will_start), IDOK);
  then_ends(10, not_launched, nothing_published);
  then_the_log_says({no_usable_information(10, nothing_published), "--no-launch: not starting bin/game.exe"});
  then_game_was_not_started();
}

TEST_P(WithoutUpdate, AnUnfinishedUpdateIsWarnedOf) {
  given_installed(release_with_arguments());
  given_nothing_is_published_any_more();
  for (const std::string state : {"complete=0\ninstalled.version=1.0\n", "installed.version=1.0\n", "complete= 1\n"}) {
    SCOPED_TRACE(state);
    folder().write(".kvx_patch/state.txt", state);
    when_started();
    then_asks(confirm_prompt(published_nothing() + version_will_start + unfinished), IDOK);
    then_ends(10, launched, nothing_published);
    then_game_was_started_with({"first one", "--second"});
    EXPECT_EQ(folder().read(".kvx_patch/state.txt"), state);
  }
}

TEST_P(WithoutUpdate, AnUnfinishedUpdateWithoutARecordIsWarnedOfToo) {
  folder().write("KVX.exe", game_program());
  folder().write(".kvx_patch/state.txt", "complete=0\n");
  when_started();
  then_asks(confirm_prompt(published_nothing() + game_will_start + unfinished), IDOK);
  then_ends(10, launched, nothing_published);
  then_game_was_started_with({});
}

TEST_P(WithoutUpdate, ARecordThatCannotBeTrustedIsNotFollowed) {
  given_installed(release_with_arguments());
  given_nothing_is_published_any_more();
  folder().write("KVX.exe", game_program());
  const std::string json = folder().read(".kvx_patch/installed_manifest.json");
  const std::string signature = folder().read(".kvx_patch/installed_manifest.sig");
  const std::string of_another_product = release_with_arguments().member("product", "\"XVK\"").json();
  struct Case {
    const char* name = nullptr;
    std::optional<std::string> json;
    std::optional<std::string> signature;
    const char* reason = nullptr;
  };
  for (const Case& c : {Case{"no signature", json, std::nullopt, "*"},
                        {"no manifest", std::nullopt, signature, "*"},
                        {"neither", std::nullopt, std::nullopt, "*"},
                        {"a signature cut short", json, signature.substr(0, 79), unknown_format},
                        {"a signature that goes on", json, signature + "x", unknown_format},
                        {"a signature of another magic", json, "KVXSIG02" + signature.substr(8), unknown_format},
                        {"a signature by a stranger", json, signature_by_a_stranger(), unknown_key},
                        {"a byte more", json + "\n", signature, no_match},
                        {"signed nonsense", "{", sign_manifest("{"), "expected string at offset 1"},
                        {"signed for another product", of_another_product, sign_manifest(of_another_product),
                         "manifest is for a different product"}}) {
    SCOPED_TRACE(c.name);
    for (const auto& [name, content] : {std::pair(".kvx_patch/installed_manifest.json", c.json),
                                        std::pair(".kvx_patch/installed_manifest.sig", c.signature)}) {
      DeleteFileW(folder().file(name).c_str());
      if (content) folder().write(name, *content);
    }
    when_started();
    then_asks(confirm_prompt(published_nothing() + game_will_start), IDOK);
    then_ends(10, launched, nothing_published);
    then_the_log_says({no_usable_information(10, nothing_published),
                       std::string("installed manifest unusable: ") + c.reason,
                       "started " + to_utf8(in_folder(L"KVX.exe")) + " (pid *)"});
    then_game_was_started_with({});
  }
}

TEST_P(WithoutUpdate, AGameWhoseProgramIsGoneCountsAsNotInstalled) {
  given_installed(release_with_arguments());
  given_nothing_is_published_any_more();
  folder().write("KVX.exe", game_program());  // not what the record names
  ASSERT_TRUE(DeleteFileW(folder().file("bin/game.exe").c_str()));
  when_started();
  then_asks(error_prompt(published_nothing() + not_installed), IDOK);
  then_ends(10, not_launched, nothing_published);
  then_the_log_says({no_usable_information(10, nothing_published)});
  then_game_was_not_started();
}

TEST_P(WithoutUpdate, EachAttemptToFetchTheReleaseSaysWhatWasWrong) {
  given_installed(release_with_arguments());
  server_.script("manifest.json", {answer(500)});
  server_.script("manifest.sig", {answer(403), answer(200, std::string(4097, 's'))});
  when_started();
  const std::string message = cannot_connect("response is larger than expected");
  then_asks(confirm_prompt(to_wide(message) + version_will_start), IDOK);
  then_ends(10, launched, message);
  then_the_log_says({"manifest fetch: HTTP 500", "signature fetch failed (attempt 2): manifest.sig: HTTP 403",
                     "signature fetch failed (attempt 3): response is larger than expected",
                     no_usable_information(10, message), "started *"});
}

TEST_P(WithoutUpdate, AFailedSecurityCheckIsNotForgottenWhenTheConnectionBreaksAfterIt) {
  given_installed(release_with_arguments());
  server_.script("manifest.sig", {answer(200, signature_by_a_stranger())});
  server_.script("manifest.json", {answer(200, release_with_arguments().json()), ScriptedResponse().reset(),
                                   ScriptedResponse().reset()});
  when_started();
  const std::string message = failed_security_check("receive: *");
  then_asks(confirm_prompt(to_wide(message) + version_will_start), IDOK);
  then_ends(20, launched, message);
  then_the_log_says({std::string("manifest signature check FAILED (attempt 1): ") + unknown_key,
                     "manifest fetch failed (attempt 2): receive: *", "manifest fetch failed (attempt 3): receive: *",
                     no_usable_information(20, message), "started *"});
}

TEST_P(WithoutUpdate, TroubleThatPassesInTimeIsOnlyLogged) {
  given_installed(release_with_arguments());
  server_.script("manifest.json", {ScriptedResponse().reset()});
  server_.script("manifest.sig", {answer(200, "not a signature")});
  when_started();
  then_ends(0, launched, "up to date 1.0");
  then_the_log_says({"manifest fetch failed (attempt 1): receive: *",
                     std::string("manifest signature check FAILED (attempt 2): ") + unknown_format,
                     "manifest: * bytes, signature OK (key primary)", "manifest: version 1.0 serial 1, *",
                     "installation matches version 1.0", "started *"});
}

// ---- A signed release that must not be used.

class RefusedRelease : public InBothWays {
 protected:
  struct Refusal {
    std::string document;
    std::string message;
  };

  static std::string with(const std::string& member, const std::string& json) {
    return release_with_arguments().member(member, json).json();
  }

  static Refusal unreadable(const std::string& document, const std::string& reason) {
    return {document, "The update information from the server could not be read (" + reason + ")."};
  }

  static Refusal not_for_us(const std::string& member, const std::string& json) {
    return {with(member, json), "The update information from the server is not for KVX."};
  }

  static Refusal bad_launcher(const std::string& json, const std::string& reason) {
    return {with("launcher", json), "The update information is invalid (" + reason + ")."};
  }

  static Refusal rejected(const std::string& member, const std::string& json, const std::string& reason) {
    return {with(member, json), "The update information from the server was rejected (" + reason + ")."};
  }

  // Each is refused with its own words, the installed game is started, and nothing is changed by it.
  void then_each_is_refused(const std::vector<Refusal>& refusals, const std::vector<std::string>& reasons_logged = {}) {
    const std::string state = folder().read(".kvx_patch/state.txt");
    const Files files = files_of(release_with_arguments());
    for (const Refusal& refusal : refusals) {
      SCOPED_TRACE(refusal.document);
      server_.serve("manifest.json", refusal.document);
      server_.serve("manifest.sig", sign_manifest(refusal.document));
      when_started();
      then_asks(confirm_prompt(to_wide(refusal.message) + version_will_start), IDOK);
      then_ends(21, launched, refusal.message);
      std::vector<std::string> log = {"manifest: " + std::to_string(refusal.document.size()) +
                                      " bytes, signature OK (key primary)"};
      log.insert(log.end(), reasons_logged.begin(), reasons_logged.end());
      log.push_back(no_usable_information(21, refusal.message));
      log.push_back("started " + to_utf8(in_folder(L"bin\\game.exe")) + " (pid *)");
      then_the_log_says(log);
      then_requests_are({"manifest.json", "manifest.sig"});
      then_game_was_started_with({"first one", "--second"});
      then_game_is(files);
      EXPECT_EQ(folder().read(".kvx_patch/state.txt"), state);
      EXPECT_EQ(folder().read(".kvx_patch/installed_manifest.json"), release_with_arguments().json());
    }
  }
};
KVX_TELL_IN_BOTH_WAYS(RefusedRelease);

TEST_P(RefusedRelease, ThatCannotBeRead) {
  given_installed(release_with_arguments());
  const std::string whole = release_with_arguments().json();
  then_each_is_refused({
      unreadable("", "unexpected end at offset 0"),
      unreadable("<html></html>", "unexpected character at offset 0"),
      unreadable(whole.substr(0, whole.size() - 1),
                 "expected ',' or '}' at offset " + std::to_string(whole.size() - 1)),
      unreadable(whole + whole, "trailing data after JSON value"),
      unreadable("{\"serial\":1,\"serial\":2}", "duplicate key at offset 20"),
      unreadable("[]", "manifest is not a JSON object"),
      unreadable("\"KVX\"", "manifest is not a JSON object"),
  });
}

TEST_P(RefusedRelease, ThatIsNotForThisGame) {
  given_installed(release_with_arguments());
  then_each_is_refused({
      not_for_us("product", "\"kvx\""),
      not_for_us("product", "\"KVX2\""),
      not_for_us("product", "null"),
      not_for_us("product", "1"),
      not_for_us("channel", "null"),
      not_for_us("channel", "[\"live\"]"),
      not_for_us("serial", "\"5\""),
      not_for_us("serial", "5.0"),
      not_for_us("serial", "null"),
      {"{}", "The update information from the server is not for KVX."},
  });
}

TEST_P(RefusedRelease, ThatIsForAnotherChannel) {
  given_installed(release_with_arguments());
  std::vector<Refusal> refusals;
  for (const std::string other : {"beta", "Live", "live ", ""}) {
    refusals.push_back({with("channel", "\"" + other + "\""),
                        "The update information from the server is for channel "
                        "\"" +
                            other + "\", not \"live\"."});
  }
  then_each_is_refused(refusals);
}

TEST_P(RefusedRelease, ThatIsForTheUsualChannelOnANamedOne) {
  given_installed(release_with_arguments());
  const std::string document = release_with_arguments().json();
  server_.serve("beta/manifest.json", document);
  server_.serve("beta/manifest.sig", sign_manifest(document));
  when_started(L"--channel=beta");
  const std::string message = "The update information from the server is for channel \"live\", not \"beta\".";
  then_asks(confirm_prompt(to_wide(message) + version_will_start), IDOK);
  then_ends(21, launched, message);
}

TEST_P(RefusedRelease, ThatIsOlderThanTheAcceptedOne) {
  given_installed(release_with_arguments());
  const std::string older = "The update server offered an older release than the one already installed.";
  struct Case {
    const char* accepted;
    const char* offered;
  };
  for (const Case& c :
       {Case{"10", "9"}, {"1", "0"}, {"9223372036854775807", "9223372036854775806"}, {"1", "-1"}, {"", "-1"}}) {
    SCOPED_TRACE(c.offered);
    folder().write(".kvx_patch/state.txt", std::string("complete=1\nserial.beta=0\nserial.live=") + c.accepted + "\n");
    const std::string accepted = *c.accepted == '\0' ? "0" : c.accepted;
    then_each_is_refused({{release_with_arguments().version("99.0").member("serial", c.offered).json(), older}},
                         {std::string("manifest serial ") + c.offered + " is older than the accepted " + accepted});
  }
}

TEST_P(RefusedRelease, WhoseLauncherIsNotWellFormed) {
  given_installed(release_with_arguments());
  const std::string digest = "\"sha256\":\"" + std::string(64, 'a') + "\"";
  const std::string bad_entry = "invalid \"launcher\" entry";
  then_each_is_refused({
      bad_launcher("[]", "\"launcher\" must be an object"),
      bad_launcher("\"2.0\"", "\"launcher\" must be an object"),
      bad_launcher("{" + digest + ",\"size\":1}", "missing \"version\""),
      bad_launcher("{\"version\":2," + digest + ",\"size\":1}", "\"version\" must be a string"),
      bad_launcher("{\"version\":\"2.0\",\"size\":1}", "missing \"sha256\""),
      bad_launcher("{\"version\":\"2.0\"," + digest + "}", "missing \"size\""),
      bad_launcher("{\"version\":\"2.0\"," + digest + ",\"size\":1.5}", "\"size\" must be a non-negative integer"),
      bad_launcher("{\"version\":\"v2\"," + digest + ",\"size\":1}", bad_entry),
      bad_launcher("{\"version\":\"2.0\"," + digest + ",\"size\":0}", bad_entry),
      bad_launcher("{\"version\":\"2.0\"," + digest + ",\"size\":268435457}", bad_entry),
      bad_launcher("{\"version\":\"2.0\",\"sha256\":\"" + std::string(64, 'A') + "\",\"size\":1}", bad_entry),
  });
}

TEST_P(RefusedRelease, ThatBreaksARuleOfTheFormat) {
  given_installed(release_with_arguments());
  const std::string hash = "\"sha256\":\"" + std::string(64, '0') + "\"";
  const auto files = [&hash](const std::string& path, const std::string& size = "0") {
    return "[{\"path\":\"bin/game.exe\",\"size\":0," + hash + "},{\"path\":\"" + path + "\",\"size\":" + size + "," +
           hash + "}]";
  };
  then_each_is_refused({
      rejected("format", "null", "missing \"format\""),
      rejected("format", "2", "manifest format 2 is not supported by this launcher"),
      rejected("version", "null", "missing \"version\""),
      rejected("version", "\"1.0-beta\"", "invalid version"),
      rejected("notes", "7", "\"notes\" must be a string"),
      rejected("min_free_disk", "-1", "\"min_free_disk\" must be a non-negative integer"),
      rejected("total_size", "1e3", "\"total_size\" must be a non-negative integer"),
      rejected("args", "\"--fast\"", "\"args\" must be an array"),
      rejected("args", "[\"" + std::string(1025, 'x') + "\"]", "\"args\" entries must be strings"),
      rejected("files", "[]", "missing \"files\""),
      rejected("files", "[1]", "\"files\" entries must be objects"),
      rejected("files", files("data/a.txt", "-1"), "\"size\" must be a non-negative integer"),
      rejected("files", files("BIN/Game.EXE"), "duplicate path \"BIN/Game.EXE\""),
      rejected("files", "[{\"path\":\"bin/game.exe\",\"size\":0,\"sha256\":\"0\"}]",
               "invalid sha256 for "
               "\"bin/game.exe\""),
      rejected("remove", "{}", "\"remove\" must be an array"),
      rejected("remove", "[\"bin/GAME.exe\"]", "path \"bin/GAME.exe\" is listed in both files and remove"),
      rejected("exe", "null", "missing \"exe\""),
      rejected("exe", "\"bin/other.exe\"", "the start program is not part of the manifest"),
  });
}

TEST_P(RefusedRelease, ThatNamesAPathItMustNotTouch) {
  given_installed(release_with_arguments());
  std::vector<Refusal> refusals;
  for (const auto& [path, reason] : {std::pair<std::string, std::string>{"", "empty or too long"},
                                     {std::string(401, 'a'), "empty or too long"},
                                     {"/windows/system.ini", "leading or trailing '/'"},
                                     {"data//a.txt", "empty path component"},
                                     {"../outside.txt", "'.' or '..' component"},
                                     {"c:/windows/system.ini", "invalid character"},
                                     {"data/trailing.", "component ends with a space or dot"},
                                     {"data/con.txt", "reserved device name"},
                                     {"data/saved/game1.sav", "user data folder 'Saved' is never managed"},
                                     {".KVX_patch/state.txt", "launcher state folder"},
                                     {"tools/kvxlauncher.EXE", "the launcher is not managed as a game file"}}) {
    refusals.push_back(rejected("remove", "[\"" + path + "\"]", "rejected remove path \"" + path + "\": " + reason));
    const std::string entry = "{\"path\":\"" + path + "\",\"size\":0,\"sha256\":\"" + std::string(64, '0') + "\"}";
    refusals.push_back(rejected("files", "[" + entry + "]", "rejected path \"" + path + "\": " + reason));
  }
  refusals.push_back(rejected("exe", "\"..\\\\outside.exe\"", "rejected exe path: backslash in path"));
  then_each_is_refused(refusals);
}

TEST_P(RefusedRelease, IsExplainedInFullWhereThereIsRoom) {
  given_installed(release_with_arguments());
  const std::string path(600, 'a');
  then_each_is_refused(
      {rejected("remove", "[\"" + path + "\"]", "rejected remove path \"" + path + "\": empty or too long")});
  EXPECT_EQ(folder().result().size(), 511U);
  EXPECT_TRUE(folder().result().ends_with("aaaa"));
}

TEST_P(RefusedRelease, ThatWouldReplaceALauncherOfAnotherName) {
  use_folder(std::make_unique<PlayerFolder>(L"Start KVX.exe"));
  given_installed(release_with_arguments());
  then_each_is_refused(
      {rejected("remove", "[\"start kvx.EXE\"]",
                "rejected remove path \"start kvx.EXE\": the launcher is not managed as a game file")});
}

// ---- A system library that does not do its part.

class WithoutNetwork : public InBothWays {
 protected:
  static std::string message() {
    return "The network could not be initialised (WinHttpOpen: " + error_text(ERROR_NOT_ENOUGH_MEMORY) + ").";
  }
};
KVX_TELL_IN_BOTH_WAYS(WithoutNetwork);

TEST_P(WithoutNetwork, TheInstalledGameIsStarted) {
  given_installed(release_with_arguments());
  copy_program(to_wide(build_path(KVX_LAUNCHER_WITHOUT_NETWORK)), folder().launcher());
  when_started();
  then_asks(confirm_prompt(to_wide(message()) + version_will_start), IDOK);
  then_ends(10, launched, message());
  then_the_log_says({no_usable_information(10, message()), "started *"});
  then_requests_are({});
  then_game_was_started_with({"first one", "--second"});
}

TEST_P(WithoutNetwork, NothingInstalledIsSaid) {
  copy_program(to_wide(build_path(KVX_LAUNCHER_WITHOUT_NETWORK)), folder().launcher());
  when_started();
  then_asks(error_prompt(to_wide(message()) + not_installed), IDOK);
  then_ends(10, not_launched, message());
  then_requests_are({});
}

class WithoutSha256 : public InBothWays {};
KVX_TELL_IN_BOTH_WAYS(WithoutSha256);

TEST_P(WithoutSha256, NeitherAReleaseNorTheInstalledGameIsTrusted) {
  given_installed(release_with_arguments());
  copy_program(to_wide(build_path(KVX_LAUNCHER_WITHOUT_HASH)), folder().launcher());
  when_started();
  const std::string reason = "SHA-256 not available";
  const std::string message = failed_security_check(reason);
  then_asks(error_prompt(to_wide(message) + not_installed), IDOK);
  then_ends(20, not_launched, message);
  std::vector<std::string> log = three_failed_checks(reason);
  log.push_back(no_usable_information(20, message));
  log.push_back("installed manifest unusable: " + reason);
  then_the_log_says(log);
  then_requests_are(three_times({"manifest.json", "manifest.sig"}));
  then_game_is(files_of(release_with_arguments()));
  then_state_is(installed_state("1.0", "1"));
}

}  // namespace
}  // namespace kvx::test
