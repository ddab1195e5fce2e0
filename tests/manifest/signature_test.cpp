#include "manifest/signature.h"

#include <gtest/gtest.h>
#include <vector>

#include "tests/support/signing_keys.h"

namespace kvx {
namespace {

using test::sign_manifest;
using test::SigningKey;

constexpr char unknown_format[] = "signature file has an unknown format";
constexpr char unknown_key[] = "manifest is signed with an unknown key";
constexpr char no_match[] = "signature does not match the manifest";

const std::string manifest = "\xEF\xBB\xBF{\"format\": 1}\r\n";

// The name of the key, or the error.
std::string outcome(std::string_view bytes, std::string_view file, std::span<const PublicKey> keys = built_in_keys()) {
  std::string key_name;
  std::string error;
  return verify_manifest(bytes, file, keys, key_name, error) ? key_name : error;
}

TEST(BuiltInKeys, ArePrimaryAndBackup) {
  ASSERT_EQ(built_in_keys().size(), 2U);
  EXPECT_STREQ(built_in_keys()[0].name, "primary");
  EXPECT_STREQ(built_in_keys()[1].name, "backup");
  EXPECT_NE(built_in_keys()[0].identifier, built_in_keys()[1].identifier);
}

TEST(VerifyManifest, NamesTheKeyThatSigned) {
  EXPECT_EQ(outcome(manifest, sign_manifest(manifest, SigningKey::primary)), "primary");
  EXPECT_EQ(outcome(manifest, sign_manifest(manifest, SigningKey::backup)), "backup");
  EXPECT_EQ(outcome("", sign_manifest("")), "primary");
  const std::string large(3 << 20, 'x');
  EXPECT_EQ(outcome(large, sign_manifest(large)), "primary");
}

TEST(VerifyManifest, RefusesAFileOfAnotherFormBeforeAnythingElse) {
  const std::string file = sign_manifest(manifest);
  for (const std::string& other :
       {std::string(), file.substr(0, 79), file + '\0', file + file, file.substr(0, 8), "kvxsig01" + file.substr(8),
        "KVXSIG02" + file.substr(8), std::string(80, '\0'), " " + file.substr(0, 79)}) {
    EXPECT_EQ(outcome(manifest, other), unknown_format) << other.size();
  }
}

TEST(VerifyManifest, RefusesASignatureOfTheOtherKeyUnderThisOnesName) {
  const std::string primary = sign_manifest(manifest, SigningKey::primary);
  const std::string backup = sign_manifest(manifest, SigningKey::backup);
  EXPECT_EQ(outcome(manifest, primary.substr(0, 16) + backup.substr(16)), no_match);
  EXPECT_EQ(outcome(manifest, backup.substr(0, 16) + primary.substr(16)), no_match);
}

TEST(VerifyManifest, RefusesAManifestThatDiffersInAnyByte) {
  const std::string file = sign_manifest(manifest);
  for (const std::string& other : {manifest + " ", manifest + "\n", manifest + '\0', manifest.substr(1),
                                   manifest.substr(3), manifest.substr(0, manifest.size() - 1), std::string()}) {
    EXPECT_EQ(outcome(other, file), no_match) << other;
  }
  for (size_t i = 0; i < manifest.size(); ++i) {
    std::string changed = manifest;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_EQ(outcome(changed, file), no_match) << i;
  }
}

TEST(VerifyManifest, RefusesASignatureFileThatDiffersInAnyByte) {
  const std::string file = sign_manifest(manifest);
  for (size_t i = 0; i < file.size(); ++i) {
    std::string changed = file;
    changed[i] = static_cast<char>(changed[i] ^ 0x10);
    EXPECT_EQ(outcome(manifest, changed), i < 8 ? unknown_format : i < 16 ? unknown_key : no_match) << i;
  }
}

TEST(VerifyManifest, RefusesNumbersOutsideTheCurvesRange) {
  const std::string file = sign_manifest(manifest);
  const std::string zero(32, '\0');
  const std::string ones(32, '\xFF');
  const std::string r = file.substr(16, 32);
  const std::string s = file.substr(48, 32);
  for (const std::string& r_and_s : {zero + zero, zero + s, r + zero, ones + ones, ones + s, r + ones, s + r}) {
    EXPECT_EQ(outcome(manifest, file.substr(0, 16) + r_and_s), no_match);
  }
}

TEST(VerifyManifest, KnowsNoKeyButThoseOfItsTable) {
  const std::string file = sign_manifest(manifest);
  EXPECT_EQ(outcome(manifest, file, {}), unknown_key);
  EXPECT_EQ(outcome(manifest, file, built_in_keys().subspan(1)), unknown_key);
}

TEST(VerifyManifest, GoesOnToTheNextKeyOfTheSameIdentifier) {
  const PublicKey& primary = built_in_keys()[0];
  PublicKey other_point = built_in_keys()[1];
  other_point.identifier = primary.identifier;
  PublicKey no_point = primary;  // cannot even be imported
  no_point.public_point.fill(0);
  const std::string file = sign_manifest(manifest);
  EXPECT_EQ(outcome(manifest, file, std::vector{other_point, no_point, primary}), "primary");
  EXPECT_EQ(outcome(manifest, file, std::vector{no_point}), no_match);
  EXPECT_EQ(outcome(manifest, file, std::vector{other_point, no_point}), no_match);
}

}  // namespace
}  // namespace kvx
