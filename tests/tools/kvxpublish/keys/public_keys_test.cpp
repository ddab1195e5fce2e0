#include "tools/kvxpublish/keys/public_keys.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using publish::NamedKey;

TEST(PublicKeys, ReadsTheFileThatBuildsTake) {
  std::vector<NamedKey> keys;
  publish::Failure failure;
  ASSERT_TRUE(publish::load_public_keys(development_public_keys(), keys, failure)) << failure.text;
  const std::vector<NamedKey> built_in = publish::built_in_named_keys();
  ASSERT_EQ(keys.size(), built_in.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(keys[i].name, built_in[i].name);
    EXPECT_EQ(keys[i].key.identifier, built_in[i].key.identifier);
    EXPECT_EQ(keys[i].key.public_point, built_in[i].key.public_point);
  }
}

TEST(PublicKeys, WritesTheLinesThatItReads) {
  std::string lines;
  for (const NamedKey& key : publish::built_in_named_keys()) lines += publish::public_line(key.name, key.key) + '\n';
  EXPECT_EQ(lines, read_text(development_public_keys()));
}

TEST(PublicKeys, TakesOneLineAndEitherLineEnd) {
  const TempFolder folder;
  const std::string text = read_text(development_public_keys());
  const std::string first = text.substr(0, text.find('\n'));
  for (const std::string& file : {first, first + "\n", first + "\r\n"}) {
    write_text(folder / L"keys.txt", file);
    std::vector<NamedKey> keys;
    publish::Failure failure;
    EXPECT_TRUE(publish::load_public_keys(folder / L"keys.txt", keys, failure)) << failure.text;
    EXPECT_EQ(keys.size(), 1U);
  }
}

TEST(PublicKeys, NamesTheLineThatIsWrong) {
  const TempFolder folder;
  const std::wstring path = folder / L"keys.txt";
  const std::string name = to_utf8(path);
  const std::string text = read_text(development_public_keys());
  const std::string first = text.substr(0, text.find('\n') + 1);
  const std::string form = " is not a name, a blank, 16 lower-case hexadecimal digits, a blank and 128 of them";
  std::string upper = text;
  upper[upper.size() - 2] = 'A';
  struct Case {
    const char* what;
    std::string file;
    std::string message;
  };
  for (const Case& c : std::vector<Case>{
           {"an empty file", "", ": there is no key in the file"},
           {"an empty line", first + "\n", ": line 2" + form},
           {"a digit too few", first + text.substr(first.size(), text.size() - first.size() - 2), ": line 2" + form},
           {"an upper-case digit", upper, ": line 2" + form},
           {"no name", text.substr(text.find(' ')), ": line 1" + form},
           {"a name alone", "primary", ": line 1" + form},
           {"an identifier alone", "primary 1ef5b9d93b368184", ": line 1" + form},
       }) {
    SCOPED_TRACE(c.what);
    write_text(path, c.file);
    std::vector<NamedKey> keys;
    publish::Failure failure;
    EXPECT_FALSE(publish::load_public_keys(path, keys, failure));
    EXPECT_EQ(failure.code, publish::ExitCode::key);
    EXPECT_EQ(failure.text, name + c.message);
  }
}

}  // namespace
}  // namespace kvx::test
