#include "manifest/sha256.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "foundations/text.h"
#include "tests/support/sha256_hex.h"

namespace kvx {
namespace {

constexpr char empty_digest[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr char abc_digest[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(Sha256, OfNothingIsTheDigestOfTheEmptyMessage) {
  Sha256Hasher untouched;
  EXPECT_EQ(untouched.finish_text(), empty_digest);
  Sha256Hasher fed_nothing;
  EXPECT_TRUE(fed_nothing.update(nullptr, 0));
  EXPECT_EQ(fed_nothing.finish_text(), empty_digest);
}

TEST(Sha256, DoesNotDependOnHowTheBytesArrive) {
  Sha256Hasher whole;
  EXPECT_TRUE(whole.update("abc", 3));
  EXPECT_EQ(whole.finish_text(), abc_digest);
  Sha256Hasher pieces;
  EXPECT_TRUE(pieces.update("a", 1));
  EXPECT_TRUE(pieces.update("", 0));
  EXPECT_TRUE(pieces.update("bc", 2));
  EXPECT_EQ(pieces.finish_text(), abc_digest);
}

TEST(Sha256, GivesTheSameDigestAsBytes) {
  Sha256Hasher hasher;
  EXPECT_TRUE(hasher.update("abc", 3));
  Sha256Digest digest{};
  EXPECT_TRUE(hasher.finish(digest));
  EXPECT_EQ(to_hex(digest.data(), digest.size()), abc_digest);
}

TEST(Sha256, AFinishedHasherFailsUntilReset) {
  Sha256Hasher hasher;
  EXPECT_TRUE(hasher.update("x", 1));
  EXPECT_NE(hasher.finish_text(), "");
  Sha256Digest digest{};
  EXPECT_FALSE(hasher.update("x", 1));
  EXPECT_FALSE(hasher.update("x", 0));
  EXPECT_FALSE(hasher.finish(digest));
  EXPECT_EQ(hasher.finish_text(), "");
  EXPECT_TRUE(hasher.reset());
  EXPECT_TRUE(hasher.update("abc", 3));
  EXPECT_EQ(hasher.finish_text(), abc_digest);
}

TEST(Sha256, ResetDropsWhatWasFed) {
  Sha256Hasher hasher;
  EXPECT_TRUE(hasher.update("x", 1));
  EXPECT_TRUE(hasher.reset());
  EXPECT_EQ(hasher.finish_text(), empty_digest);
}

TEST(Sha256, MovesWithItsBytes) {
  Sha256Hasher first;
  EXPECT_TRUE(first.update("ab", 2));
  Sha256Hasher second(std::move(first));
  EXPECT_FALSE(first.update("c", 1));  // NOLINT(bugprone-use-after-move): a moved-from hasher is empty by contract
  EXPECT_TRUE(second.update("c", 1));
  EXPECT_EQ(second.finish_text(), abc_digest);
}

TEST(Sha256, AgreesWithAnotherImplementationAroundTheBlockLength) {
  for (size_t length = 0; length < 200; ++length) {
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(i * 37 + length);
    Sha256Hasher hasher;
    EXPECT_TRUE(hasher.update(bytes.data(), bytes.size()));
    EXPECT_EQ(hasher.finish_text(), test::sha256_hex(bytes)) << length;
  }
}

TEST(Sha256, ManyThreadsHaveHashersOfTheirOwn) {
  std::vector<std::string> digests(8);
  std::vector<std::thread> threads;
  for (std::string& digest : digests) {
    threads.emplace_back([&digest] {
      Sha256Hasher hasher;
      for (int i = 0; i < 1000; ++i) EXPECT_TRUE(hasher.update("0123456789", 10));
      digest = hasher.finish_text();
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::string bytes;
  for (int i = 0; i < 1000; ++i) bytes += "0123456789";
  for (const std::string& digest : digests) EXPECT_EQ(digest, test::sha256_hex(bytes));
}

}  // namespace
}  // namespace kvx
