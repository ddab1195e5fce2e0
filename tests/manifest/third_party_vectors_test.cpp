// Runs against published collections of test vectors, which are not part of this project. KVX_VECTORS names their
// folder; without it the tests are skipped and say so.
#include <windows.h>

#include <cstdlib>
#include <gtest/gtest.h>
#include <vector>

#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "manifest/json.h"
#include "manifest/sha256.h"
#include "manifest/signature.h"
#include "tests/support/temp_folder.h"

namespace kvx {
namespace {

std::wstring vectors_folder() {
  const wchar_t* named = _wgetenv(L"KVX_VECTORS");
  return named == nullptr ? std::wstring() : full_path(named);
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else if (c != '\r') {
      parts.back() += c;
    }
  }
  return parts;
}

std::vector<std::string> lines_of(const std::wstring& path) {
  std::vector<std::string> lines = split(test::read_text(path), '\n');
  if (lines.back().empty()) lines.pop_back();
  return lines;
}

std::string from_hex(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16));
  }
  return bytes;
}

bool runs_under_wine() { return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

class ThirdPartyVectors : public testing::Test {
 protected:
  void SetUp() override {
    if (vectors.empty()) GTEST_SKIP() << "no test vectors: KVX_VECTORS does not name their folder";
    ASSERT_TRUE(is_folder(vectors)) << "KVX_VECTORS names " << to_utf8(vectors) << ", which is not a folder";
  }

  void expect_json_outcomes(const std::wstring& table, const std::wstring& folder, size_t count) const {
    const std::vector<std::string> lines = lines_of(vectors + L"\\JSONTestSuite\\" + table);
    EXPECT_EQ(lines.size(), count);
    size_t as_expected = 0;
    for (const std::string& line : lines) {
      const std::vector<std::string> fields = split(line, '\t');
      ASSERT_TRUE(fields.at(1) == "accept" || fields.at(1) == "reject") << line;
      const std::string text = test::read_text(vectors + L"\\JSONTestSuite\\" + folder + L"\\" + to_wide(fields[0]));
      JsonDocument document;
      std::string error;
      const bool accepted = parse_json(text, document, error);
      EXPECT_EQ(accepted, fields[1] == "accept") << line << ": " << error;
      if (accepted == (fields[1] == "accept")) ++as_expected;
    }
    EXPECT_EQ(as_expected, count);
  }

  std::wstring vectors = vectors_folder();
};

TEST_F(ThirdPartyVectors, JsonDocumentsAreAcceptedOrRefused) {
  expect_json_outcomes(L"json_expectations.tsv", L"test_parsing", 318);
}

TEST_F(ThirdPartyVectors, JsonDocumentsWithSeveralReadingsAreAcceptedOrRefused) {
  expect_json_outcomes(L"json_expectations_transform.tsv", L"test_transform", 22);
}

TEST_F(ThirdPartyVectors, Sha256DigestsAreTheKnownOnes) {
  constexpr size_t count = 129;
  size_t seen = 0;
  for (const wchar_t* name : {L"SHA256ShortMsg.rsp", L"SHA256LongMsg.rsp"}) {
    size_t length = 0;
    std::string message;
    for (const std::string& line : lines_of(vectors + L"\\nist_shavs\\" + name)) {
      if (line.starts_with("Len = ")) length = std::strtoull(line.c_str() + 6, nullptr, 10) / 8;
      if (line.starts_with("Msg = ")) message = from_hex(line.substr(6)).substr(0, length);
      if (!line.starts_with("MD = ")) continue;
      ++seen;
      ASSERT_EQ(message.size(), length);
      Sha256Hasher whole;
      EXPECT_TRUE(whole.update(message.data(), message.size()));
      EXPECT_EQ(whole.finish_text(), line.substr(5)) << length;
      Sha256Hasher bytewise;
      for (const char& byte : message) EXPECT_TRUE(bytewise.update(&byte, 1));
      EXPECT_EQ(bytewise.finish_text(), line.substr(5)) << length;
    }
  }
  EXPECT_EQ(seen, count);
}

TEST_F(ThirdPartyVectors, NoInvalidSignaturePassesAndEveryValidOneDoes) {
  constexpr size_t count = 262;
  const std::string refused_by_wine = "204";
  const std::vector<std::string> lines = lines_of(vectors + L"\\wycheproof\\p1363_flat.tsv");
  ASSERT_EQ(lines.size(), count + 1);  // with the heading
  for (size_t i = 1; i < lines.size(); ++i) {
    const std::vector<std::string> fields = split(lines[i], '\t');
    ASSERT_TRUE(fields.at(1) == "valid" || fields.at(1) == "invalid") << lines[i];
    PublicKey key{"vector", {1, 2, 3, 4, 5, 6, 7, 8}, {}};
    const std::string point = from_hex(fields.at(2));
    ASSERT_EQ(point.size(), key.public_point.size());
    std::copy(point.begin(), point.end(), key.public_point.begin());
    const std::string r_and_s = from_hex(fields.at(4));
    std::string key_name;
    std::string error;
    const bool passed = verify_manifest(from_hex(fields.at(3)), "KVXSIG01\x01\x02\x03\x04\x05\x06\x07\x08" + r_and_s,
                                        std::span(&key, 1), key_name, error);
    if (fields[1] == "valid") {
      if (!passed && fields[0] == refused_by_wine && runs_under_wine()) continue;
      EXPECT_TRUE(passed) << lines[i] << ": " << error;
    } else {
      EXPECT_FALSE(passed) << lines[i];
      EXPECT_EQ(error,
                r_and_s.size() == 64 ? "signature does not match the manifest" : "signature file has an unknown format")
          << lines[i];
    }
  }
}

}  // namespace
}  // namespace kvx
