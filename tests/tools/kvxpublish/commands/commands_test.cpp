// What all commands have in common: help, JSON, colours, paths and exit codes.
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "tests/support/parsed_json.h"
#include "tests/tools/kvxpublish/support/publish_site.h"
#include "tools/kvxpublish/cli/command.h"
#include "tools/kvxpublish/cli/report.h"

namespace kvx::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using publish::ExitCode;
using publish::Report;

// The one object that stands on standard output.
test::ParsedJson parsed(const std::string& data) {
  EXPECT_EQ(std::ranges::count(data, '\n'), 1);
  return test::ParsedJson(data);
}

std::vector<std::string> members_of(const JsonValue& object) {
  std::vector<std::string> names;
  for (const JsonMember& member : object.members()) names.emplace_back(member.key);
  return names;
}

std::string text_of(const JsonValue& object, const char* name) {
  const JsonValue* member = object.find_member(name);
  return std::string(member == nullptr ? "absent" : member->string().value_or("absent"));
}

int64_t number_of(const JsonValue& object, const char* name) {
  const JsonValue* member = object.find_member(name);
  return member == nullptr ? -1 : member->integer().value_or(-1);
}

TEST(Commands, EachHasAHelpWithAnExample) {
  const std::string general = kvxpublish({"--help"}).data;
  for (const std::string name : {"keygen", "pubkey", "pack", "sign", "digest", "attach"}) {
    SCOPED_TRACE(name);
    EXPECT_THAT(general, HasSubstr("\n  " + name + " "));
    const CommandResult help = kvxpublish({name, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.messages, IsEmpty());
    EXPECT_THAT(help.data, HasSubstr("\nUsage: kvxpublish " + name + " [OPTIONS]"));
    EXPECT_THAT(help.data, HasSubstr("\nExample"));
    EXPECT_THAT(help.data, HasSubstr("\n  kvxpublish " + name + " "));
    EXPECT_THAT(help.data, HasSubstr("\n  --json "));
    EXPECT_THAT(help.data, testing::Not(HasSubstr("TEXT")));  // every value has a name of its own
    EXPECT_TRUE(help.data.ends_with('\n'));
  }
}

TEST(Commands, EachGivesOneJsonObject) {
  const PublishSite site;
  const std::string folder = site.site_folder();
  const std::string keys = to_utf8(site.path(L"keys"));
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> members;
  };
  for (const Case& c : std::vector<Case>{
           {{"keygen", "--out", keys}, {"private_key", "public_key", "identifier", "fingerprint", "public_line"}},
           {{"pubkey", development_key("primary")}, {"identifier", "fingerprint", "public_line"}},
           {{"pack", site.game_folder(), "--out", folder, "--channel=live", "--version=1", "--exe=bin/game.exe",
             "--key=" + development_key("primary")},
            {"channel", "version", "serial", "files", "bytes", "removals", "added_files", "added_bytes", "key"}},
           {{"sign", folder, "--key", development_key("primary")}, {"channel", "serial", "key"}},
           {{"digest", folder, "--out", keys + "\\digest.bin"}, {"channel", "version", "serial", "manifest", "sha256"}},
       }) {
    SCOPED_TRACE(c.arguments[0]);
    std::vector<std::string> arguments = c.arguments;
    arguments.emplace_back("--json");
    const CommandResult result = kvxpublish(arguments);
    EXPECT_EQ(result.code, 0) << result.messages;
    EXPECT_EQ(members_of(*parsed(result.data)), c.members);
    EXPECT_THAT(result.messages, StartsWith("next: "));
  }
  const std::string signature = read_text(site.site(L"manifest.sig")).substr(16);
  write_text(site.path(L"signature.bin"), signature);
  const test::ParsedJson attached =
      parsed(kvxpublish({"attach", folder, "--json", "--signature", to_utf8(site.path(L"signature.bin"))}).data);
  EXPECT_EQ(members_of(*attached), (std::vector<std::string>{"channel", "serial", "key", "key_name"}));
  EXPECT_EQ(text_of(*attached, "key_name"), "primary");
  EXPECT_EQ(number_of(*attached, "serial"), 1);
}

TEST(Commands, EachGivesItsFailureAsJsonToo) {
  const PublishSite site;
  const std::string none = to_utf8(site.path(L"none"));
  struct Case {
    std::vector<std::string> arguments;
    int code;
    std::string error;
  };
  for (const Case& c : std::vector<Case>{
           {{"keygen"}, 2, "--out is required; see kvxpublish --help"},
           {{"pubkey", none}, 6, none + ": there is no such key file"},
           {{"pack", none, "--out", none + "2", "--channel=live", "--version=1", "--exe=a", "--unsigned"},
            1,
            none + ": there is no such folder"},
           {{"sign", none, "--key", none}, 6, none + ": there is no such key file"},
           {{"digest", none},
            1,
            none +
                "\\manifest.json: there is nothing to sign; pack a release of channel \"live\" first, or name another "
                "with --channel"},
           {{"attach", none, "--signature", none}, 6, none + ": there is no such signature file"},
           {{"nonsense"}, 2, "there is no command \"nonsense\"; see kvxpublish --help"},
       }) {
    SCOPED_TRACE(c.arguments[0]);
    std::vector<std::string> arguments = c.arguments;
    arguments.emplace_back("--json");
    const CommandResult result = kvxpublish(arguments);
    EXPECT_EQ(result.code, c.code);
    EXPECT_EQ(result.messages, "kvxpublish: " + c.error + "\n");
    const test::ParsedJson object = parsed(result.data);
    EXPECT_EQ(members_of(*object), (std::vector<std::string>{"error", "code"}));
    EXPECT_EQ(text_of(*object, "error"), c.error);
    EXPECT_EQ(number_of(*object, "code"), c.code);
  }
}

TEST(Commands, PathsMayBeginWithASlash) {
  const CommandResult result = kvxpublish({"pubkey", "/no/such/file.pem"});
  EXPECT_EQ(result.code, 6);
  EXPECT_THAT(result.messages, HasSubstr("\\no\\such\\file.pem: there is no such key file\n"));
}

TEST(ReportTest, WritesValuesListsAndRecordsAsLines) {
  Report report;
  report.add("name", "a value");
  report.add("count", uint64_t{18446744073709551615U});
  report.add("whole", true);
  report.add_list("path", {"a", "b"});
  report.add_list("nothing", {});
  report.add_record("changed", {{"path", "x"}, {"size", uint64_t{5}}, {"new", false}});
  report.note("First.");
  report.note("Second.");
  report.next_step("do this");
  CapturedConsole console;
  write_report(report, false, console);
  EXPECT_EQ(console.data, "name=a value\ncount=18446744073709551615\nwhole=yes\npath=a\npath=b\nchanged=x\t5\tno\n");
  EXPECT_EQ(console.messages, "note: First.\nnote: Second.\nnext: do this\n");
}

TEST(ReportTest, WritesTheSameAsOneJsonObject) {
  Report report;
  report.add("name", "ä \"value\"\xFF");  // the last byte is no UTF-8
  report.add("count", uint64_t{18446744073709551615U});
  report.add("whole", true);
  report.add_list("path", {"a", "b"});
  report.add_list("nothing", {});
  report.add_record("changed", {{"path", "x"}, {"size", uint64_t{5}}});
  report.add_record("changed", {{"path", "y"}, {"size", uint64_t{6}}});
  CapturedConsole console;
  write_report(report, true, console);
  EXPECT_EQ(
      console.data,
      "{\"name\":\"ä \\\"value\\\"\xEF\xBF\xBD\",\"count\":18446744073709551615,\"whole\":true,"
      "\"path\":[\"a\",\"b\"],\"nothing\":[],\"changed\":[{\"path\":\"x\",\"size\":5},{\"path\":\"y\",\"size\":6}]}\n");
  EXPECT_EQ(console.messages, "");
}

TEST(ReportTest, UsesColoursWhereTheConsoleHasThem) {
  CapturedConsole console;
  console.colours = true;
  Report report;
  report.note("Look.");
  report.next_step("go on");
  write_report(report, false, console);
  write_failure({ExitCode::failed, "it broke"}, false, console);
  EXPECT_EQ(console.messages,
            "\x1b[33mnote: \x1b[0mLook.\n\x1b[32mnext: \x1b[0mgo on\n\x1b[31mkvxpublish: \x1b[0mit broke\n");
}

}  // namespace
}  // namespace kvx::test
