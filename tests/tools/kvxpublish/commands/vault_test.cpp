// digest and attach: signing with a key that never leaves its vault.
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/text.h"
#include "manifest/sha256.h"
#include "manifest/signature.h"
#include "tests/support/sha256_hex.h"
#include "tests/tools/kvxpublish/support/publish_site.h"
#include "tools/kvxpublish/keys/der.h"
#include "tools/kvxpublish/keys/ecdsa.h"
#include "tools/kvxpublish/keys/signature_file.h"

namespace kvx::test {
namespace {

using testing::IsEmpty;

// What a vault answers: r then s, 32 bytes each.
std::string vault_signature(const std::string& digest, const std::string& key_name) {
  publish::PrivateKey key;
  publish::Failure failure;
  EXPECT_TRUE(publish::load_key(to_wide(development_key(key_name)), key, failure)) << failure.text;
  Sha256Digest bytes{};
  std::copy_n(digest.begin(), bytes.size(), bytes.begin());
  std::array<uint8_t, 64> r_and_s{};
  EXPECT_TRUE(publish::sign_digest(bytes, key, r_and_s));
  return {r_and_s.begin(), r_and_s.end()};
}

std::string der_number(std::string digits) {
  while (digits.size() > 1 && digits[0] == '\0') digits.erase(0, 1);
  if (static_cast<uint8_t>(digits[0]) >= 0x80) digits.insert(0, 1, '\0');
  return publish::der_value(publish::der_integer, digits);
}

std::string as_der(const std::string& r_and_s) {
  return publish::der_value(publish::der_sequence, der_number(r_and_s.substr(0, 32)) + der_number(r_and_s.substr(32)));
}

class Vault : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(site_.pack({"--key=", "--serial=7"}).code, 0); }

  [[nodiscard]] std::string digest() const {
    const std::wstring file = site_.path(L"digest.bin");
    EXPECT_EQ(kvxpublish({"digest", site_.site_folder(), "--out", to_utf8(file)}).code, 0);
    return read_text(file);
  }

  [[nodiscard]] CommandResult attach(const std::string& signature, const std::vector<std::string>& more = {}) const {
    write_text(site_.path(L"signature.bin"), signature);
    std::vector<std::string> arguments = {"attach", site_.site_folder(), "--signature", signature_file()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return kvxpublish(arguments);
  }

  [[nodiscard]] std::string signature_file() const { return to_utf8(site_.path(L"signature.bin")); }

  PublishSite site_;
};

TEST_F(Vault, ShowsTheDigestOfTheExactManifest) {
  const std::string sha256 = sha256_hex(read_text(site_.site(L"manifest.json")));
  const CommandResult result = kvxpublish({"digest", site_.site_folder()});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.data, "channel=live\nversion=1.0\nserial=7\nmanifest=" + site_.site_folder() +
                             "\\manifest.json\nsha256=" + sha256 + "\n");
  EXPECT_EQ(result.messages, "next: sign this digest with ECDSA on P-256, then: kvxpublish attach \"" +
                                 site_.site_folder() +
                                 "\" --channel live --signature FILE, and --public-keys FILE for a key that this build "
                                 "does not know\n");
  const std::string bytes = digest();
  EXPECT_EQ(to_hex(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), sha256);
}

TEST_F(Vault, FindsTheKeyThatSignedInEitherForm) {
  struct Case {
    std::string key;
    std::string identifier;
    bool der;
  };
  for (const Case& c : std::vector<Case>{{"primary", "1ef5b9d93b368184", false},
                                         {"backup", "3b8a98b1ab900a55", false},
                                         {"primary", "1ef5b9d93b368184", true},
                                         {"backup", "3b8a98b1ab900a55", true}}) {
    SCOPED_TRACE(c.key);
    const std::string raw = vault_signature(digest(), c.key);
    const CommandResult result = attach(c.der ? as_der(raw) : raw);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.data, "channel=live\nserial=7\nkey=" + c.identifier + "\nkey_name=" + c.key + "\n");
    EXPECT_EQ(result.messages, site_.verify_hint());
    EXPECT_EQ(site_.published().serial, 7);  // its signature is checked
    EXPECT_EQ(read_text(site_.site(L"manifest.sig")).substr(16), raw);
    EXPECT_EQ(read_text(site_.site(L"history\\live\\7.sig")), read_text(site_.site(L"manifest.sig")));
  }
}

TEST_F(Vault, TriesOnlyTheKeysThatItIsTold) {
  const std::string text = read_text(development_public_keys());
  const std::wstring file = site_.path(L"backup.txt");
  write_text(file, text.substr(text.find('\n') + 1));
  const std::string primary = vault_signature(digest(), "primary");
  const std::string backup = vault_signature(digest(), "backup");
  const std::string only_backup = "--public-keys=" + to_utf8(file);
  EXPECT_EQ(attach(backup, {only_backup}).code, 0);
  EXPECT_EQ(attach(backup, {"--key-id=3B8A98B1AB900A55"}).code, 0);
  const std::string refusal = "kvxpublish: " + signature_file() +
                              ": the signature fits none of the keys (backup 3b8a98b1ab900a55); sign the digest that "
                              "\"kvxpublish digest\" shows now, or name the keys with --public-keys\n";
  EXPECT_EQ(attach(primary, {only_backup}).messages, refusal);
  EXPECT_EQ(attach(primary, {"--key-id=3b8a98b1ab900a55"}).messages, refusal);
  const CommandResult unknown = attach(primary, {only_backup, "--key-id=1ef5b9d93b368184"});
  EXPECT_EQ(unknown.code, 6);
  EXPECT_EQ(unknown.messages,
            "kvxpublish: there is no key 1ef5b9d93b368184 among the public keys; name the file that has it with "
            "--public-keys\n");
}

TEST_F(Vault, RefusesASignatureThatDoesNotFitAndLeavesTheSiteAsItWas) {
  const std::string good = vault_signature(digest(), "primary");
  std::string changed = good;
  changed[40] = static_cast<char>(changed[40] ^ 1);
  const std::string fits_none = signature_file() +
                                ": the signature fits none of the keys (primary 1ef5b9d93b368184, backup "
                                "3b8a98b1ab900a55); sign the digest that \"kvxpublish digest\" shows now, or name the "
                                "keys with --public-keys";
  const std::string no_form =
      signature_file() + ": is no signature on P-256: neither r and s as 64 bytes nor a DER sequence of the two";
  struct Case {
    const char* what;
    std::string signature;
    std::string message;
  };
  const auto before = site_.snapshot();
  for (const Case& c : std::vector<Case>{
           {"a changed bit", changed, fits_none},
           {"over another manifest", vault_signature(std::string(32, 'x'), "primary"), fits_none},
           {"nothing", "", no_form},
           {"a byte too many", good + 'x', no_form},
           {"a cut DER form", as_der(good).substr(0, 60), no_form},
       }) {
    SCOPED_TRACE(c.what);
    const CommandResult result = attach(c.signature);
    EXPECT_EQ(result.code, 6);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_EQ(result.messages, "kvxpublish: " + c.message + "\n");
    EXPECT_EQ(site_.snapshot(), before);
  }
}

TEST_F(Vault, SaysThatAFileIsMissing) {
  const std::string none = to_utf8(site_.path(L"none"));
  const CommandResult signature = kvxpublish({"attach", site_.site_folder(), "--signature", none});
  EXPECT_EQ(signature.code, 6);
  EXPECT_EQ(signature.messages, "kvxpublish: " + none + ": there is no such signature file\n");
  const CommandResult keys = attach(std::string(64, 'x'), {"--public-keys=" + none});
  EXPECT_EQ(keys.code, 6);
  EXPECT_EQ(keys.messages, "kvxpublish: " + none + ": there is no such key file\n");
}

TEST_F(Vault, NeedsARelease) {
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"digest", site_.site_folder(), "--channel=test"},
        {"attach", site_.site_folder(), "--channel=test", "--signature=" + development_key("primary")}}) {
    const CommandResult result = kvxpublish(command);
    EXPECT_NE(result.code, 0);
    EXPECT_THAT(result.data, IsEmpty());
  }
  const CommandResult result = kvxpublish({"digest", site_.site_folder(), "--channel=test"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: " + site_.site_folder() +
                                 "\\test\\manifest.json: there is nothing to sign; pack a release of channel \"test\" "
                                 "first, or name another with --channel\n");
}

TEST_F(Vault, RefusesToSignWhatLaunchersWouldRefuse) {
  write_text(site_.site(L"manifest.json"), "{}");
  const CommandResult result = kvxpublish({"digest", site_.site_folder()});
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.messages, "kvxpublish: " + site_.site_folder() +
                                 "\\manifest.json: launchers would refuse this release: missing \"format\"\n");
}

}  // namespace
}  // namespace kvx::test
