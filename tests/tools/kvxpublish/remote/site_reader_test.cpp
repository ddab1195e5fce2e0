#include "tools/kvxpublish/site/site_reader.h"

#include <gmock/gmock.h>
#include <memory>
#include <string>

#include "foundations/text.h"
#include "manifest/managed_path.h"
#include "tests/support/scripted_server.h"
#include "tests/support/temp_folder.h"
#include "tools/kvxpublish/remote/site_opener.h"

namespace kvx::test {
namespace {

using publish::Failure;
using publish::Search;
using publish::SiteReader;

enum class Place : uint8_t { folder, server };

// The same site in a folder and on a server must read the same.
class SiteReaderTest : public testing::TestWithParam<Place> {
 protected:
  void SetUp() override {
    Failure failure;
    ASSERT_TRUE(publish::open_site(on_server() ? to_utf8(server_.base_url()) : to_utf8(folder_.path()), site_, failure))
        << failure.text;
  }

  [[nodiscard]] static bool on_server() { return GetParam() == Place::server; }

  void put(const std::string& name, const std::string& bytes) {
    server_.serve(name, bytes);
    write_text(folder_ / native_path(name), bytes);
  }

  [[nodiscard]] std::string full_name(const std::string& name) const {
    return to_utf8(on_server() ? server_.url(name) : folder_ / native_path(name));
  }

  [[nodiscard]] std::string content(const std::string& name, uint64_t size, Failure& failure) const {
    std::string bytes;
    const auto take = [&](const uint8_t* piece, size_t count) {
      bytes.append(piece, piece + count);
      return true;
    };
    return site_->read_content(name, size, take, failure) ? bytes : "failed: " + failure.text;
  }

  TempFolder folder_;
  ScriptedServer server_;
  std::unique_ptr<SiteReader> site_;
};

INSTANTIATE_TEST_SUITE_P(Places, SiteReaderTest, testing::Values(Place::folder, Place::server));

TEST_P(SiteReaderTest, ReadsAFileUpToItsLimit) {
  put("manifest.json", "text");
  std::string bytes;
  Failure failure;
  EXPECT_EQ(site_->read_file("manifest.json", 4, bytes, failure), Search::found);
  EXPECT_EQ(bytes, "text");
  EXPECT_EQ(site_->read_file("manifest.json", 3, bytes, failure), Search::failed);
  EXPECT_THAT(failure.text, testing::StartsWith(full_name("manifest.json") + ": "));
  EXPECT_EQ(failure.code, publish::ExitCode::failed);
}

TEST_P(SiteReaderTest, TellsTheSizeOfAFile) {
  put("some", "text");
  put("empty", "");
  uint64_t size = 99;
  Failure failure;
  EXPECT_EQ(site_->find_size("some", size, failure), Search::found) << failure.text;
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(site_->find_size("empty", size, failure), Search::found) << failure.text;
  EXPECT_EQ(size, 0U);
}

TEST_P(SiteReaderTest, KnowsThatAFileIsNotThere) {
  std::string bytes;
  uint64_t size = 0;
  Failure failure;
  EXPECT_EQ(site_->read_file("none", 10, bytes, failure), Search::absent);
  EXPECT_EQ(site_->find_size("none", size, failure), Search::absent);
}

TEST_P(SiteReaderTest, ReadsContentWhole) {
  std::string large(5000000, 'x');
  for (size_t i = 0; i < large.size(); i += 1013) large[i] = static_cast<char>(i / 1013);
  put("large", large);
  put("empty", "");
  Failure failure;
  EXPECT_TRUE(content("large", large.size(), failure) == large) << failure.text;
  EXPECT_EQ(content("empty", 0, failure), "");
}

TEST_P(SiteReaderTest, RefusesContentOfAnotherSize) {
  put("some", "text");
  Failure failure;
  EXPECT_THAT(content("some", 3, failure), testing::StartsWith("failed: " + full_name("some") + ": "));
  EXPECT_THAT(content("some", 5, failure), testing::StartsWith("failed: " + full_name("some") + ": "));
  EXPECT_THAT(content("none", 5, failure), testing::StartsWith("failed: " + full_name("none") + ": "));
}

TEST_P(SiteReaderTest, StopsWhenTheSinkDoes) {
  put("some", "text");
  Failure failure;
  EXPECT_FALSE(site_->read_content(
      "some", 4, [](const uint8_t*, size_t) { return false; }, failure));
  EXPECT_EQ(failure.text, full_name("some") + ": stopped");
}

TEST_P(SiteReaderTest, FindsNoReleaseWhereThereIsNone) {
  publish::PublishedRelease release;
  Failure failure;
  EXPECT_EQ(publish::read_release(*site_, "live", release, failure), Search::absent);
}

TEST_P(SiteReaderTest, ReadsAReleaseWithAndWithoutASignature) {
  const std::string manifest =
      R"({"format":1,"product":"KVX","channel":"test","version":"1","serial":3,"exe":"a","files":[{"path":"a","size":0,)"
      R"("sha256":"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"}]})";
  put("test/manifest.json", manifest);
  publish::PublishedRelease release;
  Failure failure;
  ASSERT_EQ(publish::read_release(*site_, "test", release, failure), Search::found) << failure.text;
  EXPECT_EQ(release.manifest_bytes, manifest);
  EXPECT_EQ(release.manifest.serial, 3);
  EXPECT_EQ(release.signature, "");
  put("test/manifest.sig", "signature");
  ASSERT_EQ(publish::read_release(*site_, "test", release, failure), Search::found) << failure.text;
  EXPECT_EQ(release.signature, "signature");
}

TEST_P(SiteReaderTest, RefusesAReleaseOfAnotherChannel) {
  put("manifest.json",
      R"({"format":1,"product":"KVX","channel":"test","version":"1","serial":3,"exe":"a","files":[{"path":"a","size":0,)"
      R"("sha256":"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"}]})");
  publish::PublishedRelease release;
  Failure failure;
  EXPECT_EQ(publish::read_release(*site_, "live", release, failure), Search::failed);
  EXPECT_EQ(failure.code, publish::ExitCode::refused);
  EXPECT_EQ(failure.text, full_name("manifest.json") +
                              ": launchers on channel \"live\" would refuse this release: it is for channel \"test\"");
}

TEST(UrlSite, TellsTheSizeEvenWhenTheServerKnowsNoRanges) {
  ScriptedServer server;
  server.serve("some", "text", Ranges::ignored);
  std::unique_ptr<SiteReader> site;
  uint64_t size = 0;
  Failure failure;
  ASSERT_TRUE(publish::open_site(to_utf8(server.base_url()), site, failure)) << failure.text;
  EXPECT_EQ(site->find_size("some", size, failure), Search::found) << failure.text;
  EXPECT_EQ(size, 4U);
}

TEST(UrlSite, SaysThatTheServerDidNotTellASize) {
  ScriptedServer server;
  server.always("some", answer_without_length(200, "text"));
  std::unique_ptr<SiteReader> site;
  uint64_t size = 0;
  Failure failure;
  ASSERT_TRUE(publish::open_site(to_utf8(server.base_url()), site, failure)) << failure.text;
  EXPECT_EQ(site->find_size("some", size, failure), Search::failed);
  EXPECT_EQ(failure.text, to_utf8(server.url("some")) + ": the server did not tell its size");
}

}  // namespace
}  // namespace kvx::test
