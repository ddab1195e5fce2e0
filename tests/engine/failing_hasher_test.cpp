// A system whose hash function fails. This program has one of its own, so it is a program of its own.
#include <windows.h>
#include <bcrypt.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/hash_cache.h"
#include "engine/installed_check.h"
#include "manifest/built_in_keys.h"
#include "manifest/file_digest.h"
#include "manifest/sha256.h"
#include "manifest/signature.h"
#include "tests/engine/download_test.h"
#include "tests/support/replaced_function.h"
#include "tests/support/signing_keys.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

enum class Step : uint8_t { none, create, feed, finish };

Step failing_step = Step::none;

constexpr NTSTATUS out_of_resources = static_cast<NTSTATUS>(0xC000009A);

template <typename Function>
Function bcrypt(const char* name) {
  static const HMODULE library = LoadLibraryW(L"bcrypt.dll");
  return library == nullptr ? nullptr : system_function<Function>(name, L"bcrypt.dll");
}

}  // namespace
}  // namespace kvx::test

// With C linkage these are the very functions that the program calls.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): this project's names, not the system's
extern "C" {

NTSTATUS WINAPI BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object,
                                 ULONG object_size, PUCHAR secret, ULONG secret_size, ULONG flags) {
  using namespace kvx::test;  // NOLINT(google-build-using-namespace): the function itself cannot be in it
  static const auto system_create = bcrypt<decltype(&BCryptCreateHash)>("BCryptCreateHash");
  if (failing_step == Step::create) return out_of_resources;
  return system_create(algorithm, hash, object, object_size, secret, secret_size, flags);
}

NTSTATUS WINAPI BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR bytes, ULONG count, ULONG flags) {
  using namespace kvx::test;  // NOLINT(google-build-using-namespace)
  static const auto system_hash = bcrypt<decltype(&BCryptHashData)>("BCryptHashData");
  return failing_step == Step::feed ? out_of_resources : system_hash(hash, bytes, count, flags);
}

NTSTATUS WINAPI BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR digest, ULONG size, ULONG flags) {
  using namespace kvx::test;  // NOLINT(google-build-using-namespace)
  static const auto system_finish = bcrypt<decltype(&BCryptFinishHash)>("BCryptFinishHash");
  return failing_step == Step::finish ? out_of_resources : system_finish(hash, digest, size, flags);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace kvx::test {
namespace {

class FailingHasher : public DownloadTest, public testing::WithParamInterface<Step> {
 protected:
  FailingHasher() { failing_step = GetParam(); }
  ~FailingHasher() override { failing_step = Step::none; }

  TestClock clock_;
  const std::string content_ = "content";
};

std::string name_of(const testing::TestParamInfo<Step>& step) {
  switch (step.param) {
    case Step::create: return "Create";
    case Step::feed: return "Feed";
    case Step::finish: return "Finish";
    case Step::none: break;
  }
  return "None";
}

INSTANTIATE_TEST_SUITE_P(AtEachStep, FailingHasher, testing::Values(Step::create, Step::feed, Step::finish), name_of);

TEST_P(FailingHasher, HasNoDigest) {
  Sha256Hasher hasher;
  Sha256Digest digest{};
  EXPECT_EQ(hasher.update("x", 1), GetParam() == Step::finish);
  EXPECT_FALSE(hasher.finish(digest));
  EXPECT_EQ(hasher.reset(), GetParam() != Step::create);
  static_cast<void>(hasher.update("x", 1));
  EXPECT_EQ(hasher.finish_text(), "");
}

TEST_P(FailingHasher, LeavesAFileWithoutADigest) {
  write_text(folder_ / L"f", content_);
  std::string error = "untouched";
  EXPECT_EQ(hash_file(folder_ / L"f", nullptr, error), "");
  EXPECT_EQ(error, "untouched");
}

TEST_P(FailingHasher, TrustsNoManifest) {
  const std::string manifest = "manifest";
  failing_step = Step::none;
  const std::string signature = sign_manifest(manifest);
  std::string key_name = "untouched";
  std::string error;
  ASSERT_TRUE(verify_manifest(manifest, signature, built_in_keys(), key_name, error)) << error;
  failing_step = GetParam();
  key_name = "untouched";
  EXPECT_FALSE(verify_manifest(manifest, signature, built_in_keys(), key_name, error));
  EXPECT_EQ(error, "SHA-256 not available");
  EXPECT_EQ(key_name, "untouched");
}

TEST_P(FailingHasher, AcceptsNoBlob) {
  server_.serve(blob_url_path(content_), content_);
  const std::string refusal = "a downloaded file failed the integrity check (" + sha256_hex(content_).substr(0, 16) +
                              "...). The file on the server is damaged or was modified";
  for (const std::wstring& staged : {std::wstring(), part(content_), blob(content_)}) {
    store_.clear_staging();
    if (!staged.empty()) write_text(staged, content_);
    EXPECT_EQ(download(content_), refusal);
    EXPECT_FALSE(exists(blob(content_)));
    EXPECT_EQ(ui_.progress_done, 0U);
  }
  failing_step = Step::none;
  EXPECT_EQ(download(content_), "");
}

TEST_P(FailingHasher, ReplacesAnInstalledFileAndRemembersNothingOfIt) {
  write_text(game(L"a"), "a");
  HashCache cache;
  cache.load(staging(L"hashcache.txt"));
  std::vector<uint64_t> to_replace;
  const Manifest manifest = ReleaseBuilder().file("a", "a").manifest();
  EXPECT_TRUE(check_installed_files({ui_, stop_, cache, install_dir_, true}, manifest, to_replace));
  EXPECT_THAT(to_replace, testing::ElementsAre(0U));
  EXPECT_FALSE(exists(staging(L"hashcache.txt")));
  EXPECT_THAT(log_.messages(),
              testing::ElementsAre("checking 1 installed files (1 bytes)", "cannot read a: SHA-256 not available"));
}

}  // namespace
}  // namespace kvx::test
