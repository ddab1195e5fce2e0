#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "manifest/built_in_keys.h"
#include "manifest/signature.h"
#include "tests/tools/kvxpublish/support/publish_site.h"
#include "tools/kvxpublish/keys/signature_file.h"

namespace kvx::test {
namespace {

using testing::IsEmpty;

std::string signing_key_name(const PublishSite& site, const std::wstring& prefix) {
  std::string name;
  std::string error;
  if (!verify_manifest(read_text(site.site(prefix + L"manifest.json")), read_text(site.site(prefix + L"manifest.sig")),
                       built_in_keys(), name, error)) {
    return error;
  }
  return name;
}

TEST(Sign, SignsWhatTheSitePublishes) {
  const PublishSite site;
  ASSERT_EQ(site.pack({"--key="}).code, 0);
  for (const auto& [key, identifier] : {std::pair<std::string, std::string>{"primary", "1ef5b9d93b368184"},
                                        std::pair<std::string, std::string>{"backup", "3b8a98b1ab900a55"}}) {
    const CommandResult result = kvxpublish({"sign", site.site_folder(), "--key", development_key(key)});
    EXPECT_EQ(result.code, 0) << result.messages;
    EXPECT_EQ(result.data, "channel=live\nserial=1\nkey=" + identifier + "\n");
    EXPECT_EQ(result.messages, site.verify_hint());
    EXPECT_EQ(signing_key_name(site, L""), key);
  }
}

TEST(Sign, SignsTheChannelThatIsNamed) {
  const PublishSite site;
  ASSERT_EQ(site.pack().code, 0);
  ASSERT_EQ(site.pack({"--channel=test", "--key="}).code, 0);
  const std::string live_signature = read_text(site.site(L"manifest.sig"));
  EXPECT_EQ(kvxpublish({"sign", site.site_folder(), "--channel=test", "--key", development_key("backup")}).code, 0);
  EXPECT_EQ(signing_key_name(site, L"test\\"), "backup");
  EXPECT_EQ(read_text(site.site(L"manifest.sig")), live_signature);
}

TEST(Sign, RefusesWithOneClearLineAndLeavesTheSiteAsItWas) {
  struct Refusal {
    const char* what;
    std::string manifest;  // in the place of the published one; empty leaves it
    std::vector<std::string> options;
    int code;
    std::string message;
  };
  const PublishSite site;
  ASSERT_EQ(site.pack().code, 0);
  const std::string good = read_text(site.site(L"manifest.json"));
  const std::string key = "--key=" + development_key("primary");
  const std::string folder = site.site_folder();
  for (const Refusal& refusal : std::vector<Refusal>{
           {"a channel without a release",
            "",
            {"--channel=test", key},
            1,
            folder +
                "\\test\\manifest.json: there is nothing to sign; pack a release of channel \"test\" first, or name "
                "another with --channel"},
           {"text that is no JSON",
            "{",
            {key},
            3,
            folder + "\\manifest.json: launchers would refuse this release: expected string at offset 1"},
           {"a manifest for another product",
            R"({"format":1,"product":"X","channel":"live","version":"1","exe":"a","serial":1})",
            {key},
            3,
            folder + "\\manifest.json: launchers would refuse this release: manifest is for a different product"},
           {"a key that is missing",
            "",
            {"--key=" + folder + "\\none.pem"},
            6,
            folder + "\\none.pem: there is no such key file"},
           {"no key", "", {}, 2, "--key is required; see kvxpublish --help"},
       }) {
    SCOPED_TRACE(refusal.what);
    write_text(site.site(L"manifest.json"), refusal.manifest.empty() ? good : refusal.manifest);
    const auto before = site.snapshot();
    std::vector<std::string> arguments = {"sign", folder};
    arguments.insert(arguments.end(), refusal.options.begin(), refusal.options.end());
    const CommandResult result = kvxpublish(arguments);
    EXPECT_EQ(result.code, refusal.code);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_EQ(result.messages, "kvxpublish: " + refusal.message + "\n");
    EXPECT_EQ(site.snapshot(), before);
  }
}

TEST(Sign, RefusesAReleaseOfAnotherChannel) {
  const PublishSite site;
  ASSERT_EQ(site.pack().code, 0);
  write_text(site.site(L"test\\manifest.json"), read_text(site.site(L"manifest.json")));
  const CommandResult result =
      kvxpublish({"sign", site.site_folder(), "--channel=test", "--key=" + development_key("primary")});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.messages,
            "kvxpublish: " + site.site_folder() +
                "\\test\\manifest.json: launchers on channel \"test\" would refuse this release: it is for channel "
                "\"live\"\n");
}

TEST(Sign, KeepsTheSignatureInTheHistoryToo) {
  const PublishSite site;
  ASSERT_EQ(site.pack({"--key=", "--serial=7"}).code, 0);
  EXPECT_FALSE(exists(site.site(L"history\\live\\7.sig")));
  ASSERT_EQ(kvxpublish({"sign", site.site_folder(), "--key", development_key("backup")}).code, 0);
  EXPECT_EQ(read_text(site.site(L"history\\live\\7.sig")), read_text(site.site(L"manifest.sig")));
  EXPECT_EQ(read_text(site.site(L"history\\live\\7.json")), read_text(site.site(L"manifest.json")));
}

TEST(Sign, TellsThatLaunchersOfThisBuildDoNotKnowTheKey) {
  const PublishSite site;
  ASSERT_EQ(site.pack({"--key="}).code, 0);
  const std::string keys = to_utf8(site.path(L"keys"));
  const std::string made = kvxpublish({"keygen", "--out", keys}).data;
  const std::string identifier = made.substr(made.find("identifier=") + 11, 16);
  const CommandResult result = kvxpublish({"sign", site.site_folder(), "--key", keys + "\\private_key.pem"});
  EXPECT_EQ(result.code, 0);
  const std::string next = "next: kvxpublish verify \"" + site.site_folder() + "\" --channel live --public-keys FILE\n";
  EXPECT_EQ(result.messages, "note: the launcher of this build does not know key " + identifier +
                                 "; only launchers built with it take the release\n" + next);
}

TEST(Sign, ComparesTheKeyWithThePublicKeysThatAreGiven) {
  const PublishSite site;
  ASSERT_EQ(site.pack({"--key="}).code, 0);
  const std::string folder = to_utf8(site.path(L"keys"));
  const std::string made = kvxpublish({"keygen", "--out", folder}).data;
  const size_t start = made.find("public_line=") + 12;
  const std::string list = to_utf8(site.path(L"list.txt"));
  write_text(site.path(L"list.txt"), made.substr(start, made.find('\n', start) - start) + "\n");
  const CommandResult known =
      kvxpublish({"sign", site.site_folder(), "--key", folder + "\\private_key.pem", "--public-keys", list});
  EXPECT_EQ(known.code, 0);
  EXPECT_EQ(known.messages, site.verify_hint("live", list));
  const CommandResult unknown =
      kvxpublish({"sign", site.site_folder(), "--key", development_key("primary"), "--public-keys", list});
  EXPECT_EQ(unknown.code, 0);
  EXPECT_EQ(unknown.messages, "note: a launcher with the keys in " + list +
                                  " does not know key 1ef5b9d93b368184; only launchers built with it take the release\n"
                                  "next: kvxpublish verify \"" +
                                  site.site_folder() + "\" --channel live --public-keys FILE\n");
}

TEST(Sign, NeverHandsOutASignatureThatDoesNotVerify) {
  publish::PrivateKey key;
  publish::PrivateKey other;
  publish::Failure failure;
  ASSERT_TRUE(publish::load_key(to_wide(development_key("primary")), key, failure)) << failure.text;
  ASSERT_TRUE(publish::load_key(to_wide(development_key("backup")), other, failure)) << failure.text;
  key.public_point = other.public_point;
  std::string signature;
  std::string identifier;
  EXPECT_FALSE(publish::sign_manifest("text", key, signature, identifier, failure));
  EXPECT_EQ(failure.code, publish::ExitCode::key);
  EXPECT_THAT(failure.text, testing::EndsWith("public point may not belong to it"));
}

}  // namespace
}  // namespace kvx::test
