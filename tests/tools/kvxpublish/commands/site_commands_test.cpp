// What the commands for sites have in common: help and JSON.
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "tests/support/parsed_json.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* command_names[] = {"verify", "diff", "publish", "promote", "rollback", "prune", "serve"};

std::vector<std::string> members_of(const std::string& data) {
  const test::ParsedJson document(data);
  EXPECT_EQ(std::ranges::count(data, '\n'), 1);
  std::vector<std::string> names;
  for (const JsonMember& member : document->members()) names.emplace_back(member.key);
  return names;
}

TEST(SiteCommands, EachHasAHelpWithAnExample) {
  const std::string general = kvxpublish({"--help"}).data;
  for (const std::string name : command_names) {
    SCOPED_TRACE(name);
    EXPECT_THAT(general, HasSubstr("\n  " + name + " "));
    const CommandResult help = kvxpublish({name, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.messages, IsEmpty());
    EXPECT_THAT(help.data, HasSubstr("\nUsage: kvxpublish " + name + " [OPTIONS]"));
    EXPECT_THAT(help.data, HasSubstr("\nExample:\n  kvxpublish " + name + " "));
    EXPECT_THAT(help.data, HasSubstr("\n  --json "));
    EXPECT_THAT(help.data, testing::Not(HasSubstr("TEXT")));  // every value has a name of its own
    EXPECT_THAT(help.data, testing::Not(HasSubstr("UINT")));
  }
}

TEST(SiteCommands, EachGivesOneJsonObject) {
  const PublishSite site;
  ASSERT_EQ(site.pack().code, 0);
  ASSERT_EQ(site.pack({"--version=2"}).code, 0);
  const std::string folder = site.site_folder();
  const std::string web = to_utf8(site.path(L"web"));
  const std::string key = "--key=" + development_key("primary");
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> members;
  };
  const std::vector<std::string> republished = {"channel", "version", "serial", "files", "bytes", "removals", "key"};
  for (const Case& c : std::vector<Case>{
           {{"verify", folder},
            {"channel", "version", "serial", "key", "key_name", "files", "bytes", "removals", "content_files",
             "content_bytes", "checked"}},
           {{"diff", folder, "--against", folder},
            {"new", "changed", "removed", "new_files", "changed_files", "removed_files", "same_files",
             "update_downloads", "update_bytes", "install_downloads", "install_bytes", "launcher_bytes"}},
           {{"publish", folder, "--to", web},
            {"channel", "version", "serial", "key", "copied_files", "copied_bytes", "present_files"}},
           {{"promote", "--from=live", "--to=test", "--to-dir", folder, key}, republished},
           {{"rollback", folder, "--to=1.0", key}, republished},
           {{"prune", folder, "--keep=1"},
            {"history", "content", "temporary", "kept_releases", "kept_content", "history_files", "content_files",
             "temporary_files", "bytes", "deleted"}},
           {{"serve", folder, "--no-start"}, {"url", "folder", "configuration", "authority", "started"}},
           {{"serve", folder, "--print"}, {"configuration"}},
       }) {
    SCOPED_TRACE(c.arguments[0]);
    std::vector<std::string> arguments = c.arguments;
    arguments.emplace_back("--json");
    const CommandResult result = kvxpublish(arguments);
    EXPECT_EQ(result.code, 0) << result.messages;
    EXPECT_EQ(members_of(result.data), c.members);
  }
}

TEST(SiteCommands, EachGivesItsFailureAsJsonToo) {
  const PublishSite site;
  const std::string none = to_utf8(site.path(L"none"));
  for (const auto& [arguments, code] : std::vector<std::pair<std::vector<std::string>, int>>{
           {{"verify", none}, 1},
           {{"diff", none, "--against", none}, 1},
           {{"publish", none, "--to", none + "2"}, 1},
           {{"promote", "--from=a", "--to=a", "--to-dir", none}, 2},
           {{"rollback", none, "--to=1", "--key=" + none}, 6},
           {{"prune", none, "--keep=1"}, 1},
           {{"serve", none}, 1},
       }) {
    SCOPED_TRACE(arguments[0]);
    std::vector<std::string> with_json = arguments;
    with_json.emplace_back("--json");
    const CommandResult result = kvxpublish(with_json);
    EXPECT_EQ(result.code, code);
    EXPECT_EQ(members_of(result.data), (std::vector<std::string>{"error", "code"}));
    EXPECT_THAT(result.data, testing::EndsWith(",\"code\":" + std::to_string(code) + "}\n"));
    EXPECT_THAT(result.messages, testing::StartsWith("kvxpublish: "));
  }
}

}  // namespace
}  // namespace kvx::test
