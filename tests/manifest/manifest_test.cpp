#include "manifest/manifest.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <limits>

#include "tests/support/parsed_json.h"

namespace kvx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string digest_a = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
const std::string digest_b = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

struct Member {
  std::string key;
  std::string json;
};

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

std::string file_entry(const std::string& path, const std::string& size = "1", const std::string& sha256 = digest_a) {
  return R"({"path":")" + path + R"(","size":)" + size + R"(,"sha256":")" + sha256 + "\"}";
}

const std::string game_file = file_entry("bin/game.exe", "10");

// The smallest valid document with some members replaced or added; empty text removes one.
std::string document(const std::vector<Member>& changes = {}) {
  std::vector<Member> members = {{"format", "1"},
                                 {"product", "\"KVX\""},
                                 {"channel", "\"live\""},
                                 {"version", "\"1.2\""},
                                 {"exe", "\"bin/game.exe\""},
                                 {"serial", "7"},
                                 {"files", "[" + game_file + "," + file_entry("data/a.pak", "20") + "]"}};
  for (const Member& change : changes) {
    const auto found =
        std::find_if(members.begin(), members.end(), [&](const Member& member) { return member.key == change.key; });
    if (found == members.end()) {
      members.push_back(change);
    } else {
      found->json = change.json;
    }
  }
  std::string text;
  for (const Member& member : members) {
    if (!member.json.empty()) text += (text.empty() ? "" : ",") + quoted(member.key) + ":" + member.json;
  }
  return "{" + text + "}";
}

std::string manifest_error(const std::string& text, Manifest& manifest) {
  const test::ParsedJson document(text);
  std::string error;
  return read_manifest(*document, L"MyLauncher.exe", manifest, error) ? "accepted" : error;
}

std::string manifest_error(const std::string& text) {
  Manifest manifest;
  return manifest_error(text, manifest);
}

Manifest accepted(const std::string& text) {
  Manifest manifest;
  EXPECT_EQ(manifest_error(text, manifest), "accepted") << text;
  return manifest;
}

std::string launcher(const std::string& version, const std::string& sha256, const std::string& size) {
  return R"({"version":)" + version + R"(,"sha256":)" + sha256 + R"(,"size":)" + size + "}";
}

TEST(Manifest, HoldsEverythingThatTheDocumentSays) {
  const Manifest m = accepted(document({{"notes", R"("two\nlines")"},
                                        {"published", "\"2026-11-14\""},
                                        {"min_free_disk", "9223372036854775807"},
                                        {"total_size", "99"},
                                        {"serial", "9223372036854775807"},
                                        {"args", R"(["-a","","b c"])"},
                                        {"remove", R"(["old/x.pak","Old/X.pak"])"},
                                        {"launcher", launcher("\"2.0\"", quoted(digest_b), "123")},
                                        {"unknown", R"({"deep":[1,2]})"}}));
  EXPECT_EQ(m.format, 1);
  EXPECT_EQ(m.product, "KVX");
  EXPECT_EQ(m.channel, "live");
  EXPECT_EQ(m.version, "1.2");
  EXPECT_EQ(m.exe, "bin/game.exe");
  EXPECT_EQ(m.notes, "two\nlines");
  EXPECT_EQ(m.published, "2026-11-14");
  EXPECT_EQ(m.min_free_disk, 9223372036854775807U);
  EXPECT_EQ(m.total_size, 99U);
  EXPECT_EQ(m.serial, std::numeric_limits<int64_t>::max());
  EXPECT_THAT(m.args, ElementsAre("-a", "", "b c"));
  ASSERT_EQ(m.files.size(), 2U);
  EXPECT_EQ(m.files[0].path, "bin/game.exe");
  EXPECT_EQ(m.files[0].native_path(), L"bin\\game.exe");
  EXPECT_EQ(m.files[0].size, 10U);
  EXPECT_EQ(m.files[0].sha256, digest_a);
  EXPECT_EQ(m.files[1].path, "data/a.pak");
  ASSERT_EQ(m.remove.size(), 2U);
  EXPECT_EQ(m.remove[0].path, "old/x.pak");
  EXPECT_EQ(m.remove[0].native_path(), L"old\\x.pak");
  EXPECT_EQ(m.remove[1].path, "Old/X.pak");  // repeats are allowed
  EXPECT_TRUE(m.launcher.present);
  EXPECT_EQ(m.launcher.version, "2.0");
  EXPECT_EQ(m.launcher.sha256, digest_b);
  EXPECT_EQ(m.launcher.size, 123U);
}

TEST(Manifest, TakesDefaultsForWhatIsAbsentOrNull) {
  const std::vector<Member> nulls = {{"notes", "null"},      {"published", "null"}, {"min_free_disk", "null"},
                                     {"total_size", "null"}, {"args", "null"},      {"remove", "null"},
                                     {"launcher", "null"}};
  for (const std::string& text : {document(), document(nulls), "\xEF\xBB\xBF" + document()}) {
    const Manifest m = accepted(text);
    EXPECT_EQ(m.notes, "");
    EXPECT_EQ(m.published, "");
    EXPECT_EQ(m.min_free_disk, 0U);
    EXPECT_EQ(m.total_size, 30U);
    EXPECT_THAT(m.args, IsEmpty());
    EXPECT_THAT(m.remove, IsEmpty());
    EXPECT_FALSE(m.launcher.present);
  }
  EXPECT_EQ(accepted(document({{"total_size", "0"}})).total_size, 30U);
}

TEST(Manifest, ForgetsWhatTheRecordHeldBefore) {
  Manifest m;
  EXPECT_EQ(
      manifest_error(
          document({{"notes", "\"x\""}, {"args", "[\"a\"]"}, {"launcher", launcher("\"2\"", quoted(digest_b), "1")}}),
          m),
      "accepted");
  EXPECT_EQ(manifest_error(document(), m), "accepted");
  EXPECT_EQ(m.files.size(), 2U);
  EXPECT_EQ(m.notes, "");
  EXPECT_THAT(m.args, IsEmpty());
  EXPECT_FALSE(m.launcher.present);
}

TEST(Manifest, AcceptsTheEndsOfEveryRange) {
  const std::string path400 = std::string(200, 'a') + "/" + std::string(199, 'b');
  for (const std::vector<Member>& changes : std::vector<std::vector<Member>>{
           {{"channel", "\"a\""}},
           {{"channel", "\"live-2_test\""}},
           {{"channel", quoted(std::string(32, 'z'))}},
           {{"version", "\"1\""}},
           {{"version", "\"1.2.3.4\""}},
           {{"version", "\"01.0\""}},
           {{"version", "\"1000000000\""}},
           {{"version", "\"00000000000000000000000000000001\""}},
           {{"serial", "0"}},
           {{"serial", "-0"}},
           {{"min_free_disk", "0"}},
           {{"args", "[]"}},
           {{"args", "[" + quoted(std::string(1024, 'x')) + "]"}},
           {{"remove", "[]"}},
           {{"remove", "[" + quoted(path400) + "]"}},
           {{"launcher", launcher("\"1\"", quoted(digest_b), "1")}},
           {{"launcher", launcher("\"1.2.3.4\"", quoted(digest_b), "268435456")}},
           {{"files", "[" + file_entry("bin/game.exe", "0") + "]"}},
           {{"files", "[" + file_entry("bin/game.exe", "9223372036854775807") + "]"}},
           {{"files", "[" + game_file + "," + file_entry(path400) + "]"}},
           {{"exe", "\"Bin/GAME.EXE\""}},
           {{"files", R"([{"sha256":")" + digest_a + R"(","size":1,"extra":null,"path":"bin/game.exe"}])"}},
       }) {
    EXPECT_EQ(manifest_error(document(changes)), "accepted") << document(changes);
  }
}

TEST(Manifest, RefusesTheFirstThingThatIsWrong) {
  struct Case {
    std::vector<Member> changes;
    std::string error;
  };
  const auto files = [](const std::string& entries) { return Member{"files", "[" + entries + "]"}; };
  const auto launcher_entry = [](const std::string& version, const std::string& sha256, const std::string& size) {
    return Member{"launcher", launcher(version, sha256, size)};
  };
  const auto remove = [](const std::string& path) { return Member{"remove", "[" + quoted(path) + "]"}; };
  const std::string upper_digest = "A" + digest_a.substr(1);
  for (const Case& c : std::vector<Case>{
           {{{"format", ""}}, "missing \"format\""},
           {{{"format", "null"}}, "missing \"format\""},
           {{{"format", "\"1\""}}, "missing \"format\""},
           {{{"format", "1.0"}}, "missing \"format\""},
           {{{"format", "true"}}, "missing \"format\""},
           {{{"format", "2"}}, "manifest format 2 is not supported by this launcher"},
           {{{"format", "0"}}, "manifest format 0 is not supported by this launcher"},
           {{{"format", "-3"}}, "manifest format -3 is not supported by this launcher"},
           {{{"format", "-9223372036854775808"}},
            "manifest format -9223372036854775808 is not supported by this launcher"},
           {{{"product", ""}}, "missing \"product\""},
           {{{"product", "null"}}, "missing \"product\""},
           {{{"product", "1"}}, "\"product\" must be a string"},
           {{{"product", "\"kvx\""}}, "manifest is for a different product"},
           {{{"product", "\"\""}}, "manifest is for a different product"},
           {{{"product", "\"KVX2\""}}, "manifest is for a different product"},
           {{{"channel", ""}}, "missing \"channel\""},
           {{{"channel", "[]"}}, "\"channel\" must be a string"},
           {{{"channel", "\"\""}}, "invalid channel name"},
           {{{"channel", "\"Live\""}}, "invalid channel name"},
           {{{"channel", "\"live test\""}}, "invalid channel name"},
           {{{"channel", "\"live.test\""}}, "invalid channel name"},
           {{{"channel", "\"../x\""}}, "invalid channel name"},
           {{{"channel", "\"\xC3\xA9\""}}, "invalid channel name"},
           {{{"channel", quoted(std::string(33, 'a'))}}, "invalid channel name"},
           {{{"version", ""}}, "missing \"version\""},
           {{{"version", "1.2"}}, "\"version\" must be a string"},
           {{{"version", "\"\""}}, "invalid version"},
           {{{"version", "\"1..2\""}}, "invalid version"},
           {{{"version", "\"v1\""}}, "invalid version"},
           {{{"version", "\"1.2.3.4.5\""}}, "invalid version"},
           {{{"version", "\"1.2-beta\""}}, "invalid version"},
           {{{"version", "\"1000000001\""}}, "invalid version"},
           {{{"version", "\"000000000000000000000000000000001\""}}, "invalid version"},
           {{{"exe", ""}}, "missing \"exe\""},
           {{{"exe", "{}"}}, "\"exe\" must be a string"},
           {{{"exe", "\"\""}}, "rejected exe path: empty or too long"},
           {{{"exe", "\"../game.exe\""}}, "rejected exe path: '.' or '..' component"},
           {{{"exe", "\"MyLauncher.exe\""}}, "rejected exe path: the launcher is not managed as a game file"},
           {{{"exe", "\"bin/other.exe\""}}, "the start program is not part of the manifest"},
           {{{"exe", "\"bin\""}}, "the start program is not part of the manifest"},
           {{{"notes", "1"}}, "\"notes\" must be a string"},
           {{{"published", "false"}}, "\"published\" must be a string"},
           {{{"min_free_disk", "-1"}}, "\"min_free_disk\" must be a non-negative integer"},
           {{{"min_free_disk", "1.5"}}, "\"min_free_disk\" must be a non-negative integer"},
           {{{"total_size", "\"1\""}}, "\"total_size\" must be a non-negative integer"},
           {{{"total_size", "-1"}}, "\"total_size\" must be a non-negative integer"},
           {{{"serial", ""}}, "missing \"serial\""},
           {{{"serial", "null"}}, "missing \"serial\""},
           {{{"serial", "-1"}}, "\"serial\" must be a non-negative integer"},
           {{{"serial", "1e3"}}, "\"serial\" must be a non-negative integer"},
           {{{"launcher", "[]"}}, "\"launcher\" must be an object"},
           {{{"launcher", "\"2.0\""}}, "\"launcher\" must be an object"},
           {{{"launcher", "{}"}}, "missing \"version\""},
           {{{"launcher", R"({"version":"1"})"}}, "missing \"sha256\""},
           {{{"launcher", R"({"version":"1","sha256":"x"})"}}, "missing \"size\""},
           {{launcher_entry("2", quoted(digest_b), "1")}, "\"version\" must be a string"},
           {{launcher_entry("\"2\"", "null", "1")}, "missing \"sha256\""},
           {{launcher_entry("\"2\"", "7", "1")}, "\"sha256\" must be a string"},
           {{launcher_entry("\"2\"", quoted(digest_b), "-1")}, "\"size\" must be a non-negative integer"},
           {{launcher_entry("\"2\"", quoted(digest_b), "0")}, "invalid \"launcher\" entry"},
           {{launcher_entry("\"2\"", quoted(digest_b), "268435457")}, "invalid \"launcher\" entry"},
           {{launcher_entry("\"2.\"", quoted(digest_b), "1")}, "invalid \"launcher\" entry"},
           {{launcher_entry("\"2\"", quoted(upper_digest), "1")}, "invalid \"launcher\" entry"},
           {{launcher_entry("\"2\"", quoted(digest_b.substr(1)), "1")}, "invalid \"launcher\" entry"},
           {{{"args", "{}"}}, "\"args\" must be an array"},
           {{{"args", "\"-a\""}}, "\"args\" must be an array"},
           {{{"args", "[\"a\",1]"}}, "\"args\" entries must be strings"},
           {{{"args", "[null]"}}, "\"args\" entries must be strings"},
           {{{"args", "[" + quoted(std::string(1025, 'x')) + "]"}}, "\"args\" entries must be strings"},
           {{{"files", ""}}, "missing \"files\""},
           {{{"files", "null"}}, "missing \"files\""},
           {{{"files", "{}"}}, "missing \"files\""},
           {{{"files", "[]"}}, "missing \"files\""},
           {{files("1")}, "\"files\" entries must be objects"},
           {{files(game_file + ",null")}, "\"files\" entries must be objects"},
           {{files("{}")}, "missing \"path\""},
           {{files(R"({"path":1})")}, "\"path\" must be a string"},
           {{files(R"({"path":"a"})")}, "missing \"size\""},
           {{files(file_entry("a", "-1"))}, "\"size\" must be a non-negative integer"},
           {{files(file_entry("a", "1.0"))}, "\"size\" must be a non-negative integer"},
           {{files(file_entry("a", "\"1\""))}, "\"size\" must be a non-negative integer"},
           {{files(R"({"path":"a","size":1})")}, "missing \"sha256\""},
           {{files(R"({"path":"a","size":1,"sha256":[]})")}, "\"sha256\" must be a string"},
           {{files(file_entry("../evil.exe"))}, "rejected path \"../evil.exe\": '.' or '..' component"},
           {{files(file_entry(""))}, "rejected path \"\": empty or too long"},
           {{files(file_entry("Saved/x"))}, "rejected path \"Saved/x\": user data folder 'Saved' is never managed"},
           {{files(file_entry("a\\\\b"))}, "rejected path \"a\\b\": backslash in path"},
           {{files(file_entry(std::string(401, 'a')))},
            "rejected path \"" + std::string(401, 'a') + "\": empty or too long"},
           {{files(file_entry("a", "1", upper_digest))}, "invalid sha256 for \"a\""},
           {{files(file_entry("a", "1", ""))}, "invalid sha256 for \"a\""},
           {{files(file_entry("a", "1", digest_a + "a"))}, "invalid sha256 for \"a\""},
           {{files(file_entry("Bin/Game.exe") + "," + file_entry("bin/game.exe"))}, "duplicate path \"bin/game.exe\""},
           {{files(file_entry("bin/game.exe") + "," + file_entry("bin/game.exe"))}, "duplicate path \"bin/game.exe\""},
           {{files(file_entry("\xC3\xA9") + "," + file_entry("\xC3\x89"))}, "duplicate path \"\xC3\x89\""},
           {{{"remove", "{}"}}, "\"remove\" must be an array"},
           {{{"remove", "\"a\""}}, "\"remove\" must be an array"},
           {{{"remove", "[\"a\",1]"}}, "\"remove\" entries must be strings"},
           {{{"remove", "[null]"}}, "\"remove\" entries must be strings"},
           {{remove("../x")}, "rejected remove path \"../x\": '.' or '..' component"},
           {{remove(".kvx_patch/state.txt")}, "rejected remove path \".kvx_patch/state.txt\": launcher state folder"},
           {{remove("KVXLauncher.exe")},
            "rejected remove path \"KVXLauncher.exe\": the launcher is not managed as a game file"},
           {{remove("bin/game.exe")}, "path \"bin/game.exe\" is listed in both files and remove"},
           {{remove("BIN/game.EXE")}, "path \"BIN/game.EXE\" is listed in both files and remove"},
       }) {
    EXPECT_EQ(manifest_error(document(c.changes)), c.error) << document(c.changes);
  }
  for (const char* root : {"[]", "1", "null", "\"{}\""}) {
    EXPECT_EQ(manifest_error(root), "manifest is not a JSON object") << root;
  }
}

// A document with everything wrong, mended step by step, shows the order of the tests.
TEST(Manifest, TestsInAFixedOrder) {
  struct Step {
    Member wrong;
    std::string error;
  };
  const std::string bad_entries = file_entry("a", "1", "x") + "," + file_entry("../b", "-1", "x");
  std::vector<Step> steps = {
      {{"format", "2"}, "manifest format 2 is not supported by this launcher"},
      {{"product", "1"}, "\"product\" must be a string"},
      {{"channel", "1"}, "\"channel\" must be a string"},
      {{"version", "1"}, "\"version\" must be a string"},
      {{"exe", "1"}, "\"exe\" must be a string"},
      {{"notes", "1"}, "\"notes\" must be a string"},
      {{"published", "1"}, "\"published\" must be a string"},
      {{"min_free_disk", "-1"}, "\"min_free_disk\" must be a non-negative integer"},
      {{"total_size", "-1"}, "\"total_size\" must be a non-negative integer"},
      {{"serial", "-1"}, "\"serial\" must be a non-negative integer"},
      {{"product", "\"X\""}, "manifest is for a different product"},
      {{"channel", "\"X\""}, "invalid channel name"},
      {{"version", "\"X\""}, "invalid version"},
      {{"launcher", "1"}, "\"launcher\" must be an object"},
      {{"args", "1"}, "\"args\" must be an array"},
      {{"files", "1"}, "missing \"files\""},
      {{"files", "[" + bad_entries + "]"}, "invalid sha256 for \"a\""},
      {{"files", "[" + file_entry("../b", "-1", "x") + "]"}, "\"size\" must be a non-negative integer"},
      {{"files", "[" + file_entry("../b", "1", "x") + "]"}, "rejected path \"../b\": '.' or '..' component"},
      {{"files", "[" + game_file + "," + file_entry("bin/game.exe", "1", "x") + "]"},
       "invalid sha256 for \"bin/game.exe\""},
      {{"files", "[" + game_file + "," + game_file + "," + bad_entries + "]"}, "duplicate path \"bin/game.exe\""},
      {{"remove", "1"}, "\"remove\" must be an array"},
      {{"remove", "[\"../x\",\"bin/game.exe\",1]"}, "rejected remove path \"../x\": '.' or '..' component"},
      {{"exe", "\"../x\""}, "rejected exe path: '.' or '..' component"},
  };
  for (size_t first = 0; first < steps.size(); ++first) {
    std::vector<Member> changes;
    // Of two faults in one member the earlier one is in the document.
    for (size_t i = steps.size(); i > first; --i) changes.push_back(steps[i - 1].wrong);
    EXPECT_EQ(manifest_error(document(changes)), steps[first].error) << first;
  }
}

TEST(ReadLauncherEntry, ReadsThatMemberAlone) {
  struct Case {
    std::string text;
    bool succeeds;
    bool present;
    std::string error;
  };
  for (const Case& c :
       {Case{"{}", true, false, ""},
        {"[]", true, false, ""},
        {R"({"launcher":null})", true, false, ""},
        {R"({"format":2,"launcher":)" + launcher("\"2.1\"", quoted(digest_b), "5") + "}", true, true, ""},
        {R"({"launcher":1})", false, false, "\"launcher\" must be an object"},
        {R"({"launcher":)" + launcher("\"2.1\"", quoted(digest_b), "0") + "}", false, false,
         "invalid \"launcher\" entry"}}) {
    const test::ParsedJson document(c.text);
    std::string error;
    LauncherEntry entry{true, "9", "old", 9};
    EXPECT_EQ(read_launcher_entry(*document, entry, error), c.succeeds) << c.text;
    EXPECT_EQ(error, c.error) << c.text;
    EXPECT_EQ(entry.present, c.present) << c.text;
    if (!c.succeeds) continue;
    EXPECT_EQ(entry.version, c.present ? "2.1" : "") << c.text;
    EXPECT_EQ(entry.sha256, c.present ? digest_b : "") << c.text;
    EXPECT_EQ(entry.size, c.present ? 5U : 0U) << c.text;
  }
}

}  // namespace
}  // namespace kvx
