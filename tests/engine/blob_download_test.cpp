#include "engine/blob_download.h"

#include <functional>
#include <memory>

#include "foundations/error_text.h"
#include "tests/engine/download_test.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64_t counted_before = 5000;  // of other blobs
constexpr char closed_early[] = "the connection closed before the download finished";

class BlobDownload : public DownloadTest {
 protected:
  BlobDownload() { ui_.progress_done = counted_before; }

  [[nodiscard]] std::string verified() const {
    return line("downloaded + verified ", content_, " (" + std::to_string(content_.size()) + " bytes)");
  }
  [[nodiscard]] std::string resuming(size_t at) const {
    return line("resuming ", content_,
                " at " + std::to_string(at) + " of " + std::to_string(content_.size()) + " bytes");
  }
  [[nodiscard]] std::string interrupted(size_t at, const std::string& error, uint32_t pause_ms) const {
    return line("download of ", content_,
                " interrupted at " + std::to_string(at) + " bytes (" + error + "); retrying in " +
                    std::to_string(pause_ms) + " ms");
  }
  [[nodiscard]] std::string restarting(const std::string& answer) const {
    return line("server did not accept resuming ", content_, " (" + answer + "): restarting it from 0");
  }
  [[nodiscard]] std::string integrity_failure(const std::string& received) const {
    return line("INTEGRITY FAILURE: ", content_, " hashed to " + sha256_hex(received));
  }

  [[nodiscard]] uint64_t counted() const { return ui_.progress_done - counted_before; }

  // The positions that were asked for, in order.
  [[nodiscard]] std::vector<std::string> asked() const {
    std::vector<std::string> ranges;
    for (const RecordedRequest& request : server_.requests_for(url_path_)) {
      ranges.push_back(request.header("Range").value_or("all"));
    }
    return ranges;
  }

  void expect_finished() const {
    EXPECT_EQ(read_text(blob(content_)), content_);
    EXPECT_FALSE(exists(part(content_)));
    EXPECT_EQ(counted(), content_.size());
  }

  // A partial response for the bytes from `start` that ends before `end`.
  [[nodiscard]] ScriptedResponse piece(size_t start, size_t end) const {
    const std::string size = std::to_string(content_.size());
    if (start == 0) return answer_without_length(200, content_.substr(0, end));
    return answer_without_length(206, content_.substr(start, end - start),
                                 "Content-Range: bytes " + std::to_string(start) + "-" +
                                     std::to_string(content_.size() - 1) + "/" + size + "\r\n");
  }

  TestClock clock_;
  const std::string content_ = "a blob of exactly 32 bytes......";
  const std::string url_path_ = blob_url_path(content_);
};

TEST_F(BlobDownload, BringsAVerifiedBlobIntoTheStore) {
  server_.serve(url_path_, content_);
  ASSERT_EQ(download(content_), "");
  expect_finished();
  EXPECT_THAT(asked(), ElementsAre("all"));
  EXPECT_THAT(log_.messages(), ElementsAre(verified()));
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(BlobDownload, MakesAnEmptyBlobWithoutARequest) {
  ASSERT_EQ(download(""), "");
  EXPECT_EQ(read_text(blob("")), "");
  EXPECT_THAT(server_.requests(), IsEmpty());
  EXPECT_THAT(log_.messages(), ElementsAre(line("downloaded + verified ", "", " (0 bytes)")));
}

TEST_F(BlobDownload, AcceptsABlobThatIsAlreadyStaged) {
  write_text(blob(content_), content_);
  ASSERT_EQ(download(content_), "");
  EXPECT_EQ(counted(), content_.size());
  EXPECT_THAT(server_.requests(), IsEmpty());
  EXPECT_THAT(log_.messages(), ElementsAre(line("blob ", content_, " already staged")));
}

TEST_F(BlobDownload, ReplacesAStagedBlobThatIsNotWhatItsNameSays) {
  server_.serve(url_path_, content_);
  for (const std::string& staged : {std::string(content_.size(), 'x'), content_ + "x", std::string()}) {
    ui_.progress_done = counted_before;
    write_text(blob(content_), staged);
    ASSERT_EQ(download(content_), "") << staged;
    expect_finished();
  }
}

TEST_F(BlobDownload, DeletesAStagedBlobWithAWrongDigestBeforeItAsksForIt) {
  write_text(blob(content_), std::string(content_.size(), 'x'));
  EXPECT_EQ(download(content_), "a required file is missing on the update server (HTTP 404)");
  EXPECT_FALSE(exists(blob(content_)));
}

TEST_F(BlobDownload, TakesUpWhatAnEarlierRunLeft) {
  struct Case {
    std::string partial;
    std::vector<std::string> asked;
    std::vector<std::string> logged_before_verified;
  };
  for (const Case& c :
       {Case{content_.substr(0, 10), {"bytes=10-"}, {resuming(10)}},
        Case{content_.substr(0, 31), {"bytes=31-"}, {resuming(31)}}, Case{"", {"all"}, {}},
        Case{content_, {}, {resuming(32)}}, Case{content_ + "x", {"all"}, {}},
        Case{std::string(32, 'x'), {"all"}, {resuming(32), integrity_failure(std::string(32, 'x'))}},
        Case{"xxxx", {"bytes=4-", "all"}, {resuming(4), integrity_failure("xxxx" + content_.substr(4))}}}) {
    ScriptedServer server;
    server.serve(url_path_, content_);
    const std::wstring base_url = server.base_url();
    ui_.progress_done = counted_before;
    store_.clear_staging();
    write_text(part(content_), c.partial);
    const size_t logged = log_.messages().size();
    std::string error;
    ASSERT_TRUE(download_blob({ui_, stop_, base_url, store_}, session_, job(content_), buffer_, error)) << error;
    expect_finished();
    std::vector<std::string> asked;
    for (const RecordedRequest& request : server.requests()) asked.push_back(request.header("Range").value_or("all"));
    EXPECT_EQ(asked, c.asked) << c.partial;
    std::vector<std::string> messages = log_.messages();
    messages.erase(messages.begin(), messages.begin() + static_cast<ptrdiff_t>(logged));
    std::vector<std::string> expected = c.logged_before_verified;
    expected.push_back(verified());
    EXPECT_EQ(messages, expected) << c.partial;
  }
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
}

TEST_F(BlobDownload, HashesALargePartialFileInSeveralReads) {
  constexpr size_t read_bytes = 4194304;
  std::string content(2 * read_bytes + 5, 'a');
  for (size_t i = 0; i < content.size(); i += 1000) content[i] = static_cast<char>(i % 251);
  server_.serve(blob_url_path(content), content);
  write_text(part(content), content.substr(0, 2 * read_bytes + 3));
  ASSERT_EQ(download(content), "");
  EXPECT_EQ(read_text(blob(content)), content);
  EXPECT_EQ(server_.requests_for(blob_url_path(content)).at(0).header("Range"),
            "bytes=" + std::to_string(2 * read_bytes + 3) + "-");
}

TEST_F(BlobDownload, StartsAgainAtOnceWhenTheServerIgnoresTheRange) {
  server_.serve(url_path_, content_, Ranges::ignored);
  write_text(part(content_), content_.substr(0, 10));
  uint64_t counted_at_restart = 1;
  server_.on_request(url_path_, [&](const RecordedRequest& request) {
    if (!request.header("Range")) counted_at_restart = counted();
  });
  ASSERT_EQ(download(content_), "");
  expect_finished();
  EXPECT_EQ(counted_at_restart, 0U);
  EXPECT_THAT(asked(), ElementsAre("bytes=10-", "all"));
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  EXPECT_THAT(log_.messages(), ElementsAre(resuming(10), restarting("range ignored"), verified()));
}

TEST_F(BlobDownload, GivesUpAfterNineRestarts) {
  server_.always(url_path_, answer(416));
  write_text(part(content_), content_.substr(0, 10));
  EXPECT_EQ(download(content_), "the server does not allow resuming downloads");
  EXPECT_EQ(asked().size(), 9U);
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  EXPECT_FALSE(exists(part(content_)));
  EXPECT_EQ(counted(), 0U);
  std::vector<std::string> expected(9, restarting("HTTP 416"));
  expected.insert(expected.begin(), resuming(10));
  EXPECT_EQ(log_.messages(), expected);
}

// A server that ignores ranges and always breaks off at the same place would otherwise be asked for ever.
TEST_F(BlobDownload, EndsByRestartsAloneWhereEachAttemptFetchesTheSameBytesAgain) {
  server_.always(url_path_, ScriptedResponse("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(content_.size()) +
                                             "\r\nConnection: close\r\n\r\n" + content_.substr(0, 10)));
  EXPECT_EQ(download(content_), "the server does not allow resuming downloads");
  std::vector<std::string> pairs;
  for (int restart = 0; restart < 9; ++restart) pairs.insert(pairs.end(), {"all", "bytes=10-"});
  EXPECT_EQ(asked(), pairs);
}

TEST_F(BlobDownload, CountsBytesThatItFetchesAgainNeitherAsAStallNorAsProgress) {
  server_.script(url_path_, {answer(500), piece(0, 20), answer(416), piece(0, 10), piece(10, 15), answer(500)});
  server_.serve(url_path_, content_);
  ASSERT_EQ(download(content_), "");
  expect_finished();
  const std::string http_500 = "the server answered HTTP 500";
  EXPECT_THAT(log_.messages(),
              ElementsAre(interrupted(0, http_500, 2000),  // the first stall
                          interrupted(20, closed_early, 1000), resuming(20),
                          restarting("HTTP 416"),  // the first again
                          interrupted(10, closed_early, 2000), resuming(10), interrupted(15, closed_early, 2000),
                          resuming(15), interrupted(15, http_500, 4000), resuming(15), verified()));
}

TEST_F(BlobDownload, CountsARestartAsAStall) {
  server_.script(url_path_, {answer(416), answer(500)});
  server_.serve(url_path_, content_);
  ASSERT_EQ(download(content_), "");
  EXPECT_EQ(clock_.total_slept_ms(), 4000U);
}

TEST_F(BlobDownload, FailsAtOnceWhenTheServerDoesNotHaveTheBlob) {
  for (const int status : {403, 404, 410}) {
    server_.script(url_path_, {answer(status)});
    EXPECT_EQ(download(content_),
              "a required file is missing on the update server (HTTP " + std::to_string(status) + ")");
  }
  EXPECT_EQ(asked().size(), 3U);
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(BlobDownload, WaitsLongerAfterEachAttemptThatBroughtNothingAndFailsAtTheNinth) {
  server_.always(url_path_, answer(500));
  EXPECT_EQ(download(content_), "the server answered HTTP 500");
  std::vector<std::string> expected;
  for (const uint32_t pause_ms : {2000U, 4000U, 8000U, 16000U, 32000U, 32000U, 32000U, 32000U}) {
    expected.push_back(interrupted(0, "the server answered HTTP 500", pause_ms));
  }
  EXPECT_EQ(log_.messages(), expected);
  EXPECT_EQ(clock_.total_slept_ms(), 158000U);
  EXPECT_THAT(clock_.sleeps(), testing::Each(100U));
  EXPECT_EQ(asked().size(), 9U);
}

TEST_F(BlobDownload, RetriesEveryStatusButThoseOfAMissingFile) {
  for (const int status : {400, 401, 408, 429, 500, 502, 503}) {
    store_.clear_staging();
    server_.script(url_path_, {answer(status)});
    server_.serve(url_path_, content_);
    EXPECT_EQ(download(content_), "") << status;
    EXPECT_EQ(log_.messages().end()[-2], interrupted(0, "the server answered HTTP " + std::to_string(status), 2000));
  }
}

TEST_F(BlobDownload, RetriesWhenNobodyAnswers) {
  server_.stop();
  const std::string error = download(content_);
  EXPECT_NE(error, "");
  std::vector<std::string> expected;
  for (const uint32_t pause_ms : {2000U, 4000U, 8000U, 16000U, 32000U, 32000U, 32000U, 32000U}) {
    expected.push_back(interrupted(0, error, pause_ms));
  }
  EXPECT_EQ(log_.messages(), expected);
}

TEST_F(BlobDownload, ForgetsStallsOnceBytesArrive) {
  server_.script(url_path_, {answer(500), answer(500), piece(0, 10), answer(500), piece(10, 20)});
  server_.serve(url_path_, content_);
  ASSERT_EQ(download(content_), "");
  expect_finished();
  const std::string http_500 = "the server answered HTTP 500";
  EXPECT_THAT(asked(), ElementsAre("all", "all", "all", "bytes=10-", "bytes=10-", "bytes=20-"));
  EXPECT_THAT(log_.messages(),
              ElementsAre(interrupted(0, http_500, 2000), interrupted(0, http_500, 4000),
                          interrupted(10, closed_early, 1000), resuming(10), interrupted(10, http_500, 2000),
                          resuming(10), interrupted(20, closed_early, 1000), resuming(20), verified()));
  EXPECT_EQ(clock_.total_slept_ms(), 10000U);
}

TEST_F(BlobDownload, AllowsAnyNumberOfInterruptionsThatBringBytes) {
  std::vector<ScriptedResponse> pieces;
  for (size_t at = 0; at < 20; ++at) pieces.push_back(piece(at, at + 1));
  server_.script(url_path_, pieces);
  server_.serve(url_path_, content_);
  ASSERT_EQ(download(content_), "");
  expect_finished();
  EXPECT_EQ(clock_.total_slept_ms(), 20000U);
}

TEST_F(BlobDownload, FailsAtTheThirdAnswerThatContradictsTheManifest) {
  server_.always(url_path_, answer(200, "too short"));
  const std::string error = "the server reports a different file size (9 instead of 32 bytes)";
  EXPECT_EQ(download(content_), error);
  EXPECT_THAT(log_.messages(), ElementsAre(interrupted(0, error, 2000), interrupted(0, error, 4000)));
  EXPECT_EQ(clock_.total_slept_ms(), 6000U);
  EXPECT_EQ(asked().size(), 3U);
}

TEST_F(BlobDownload, CountsContradictionsOverTheWholeDownload) {
  const ScriptedResponse contradiction = answer(200, "too short");
  server_.script(url_path_, {contradiction, piece(0, 10), answer(206, "", "Content-Range: bytes 0-31/32\r\n"),
                             piece(10, 20), answer(206)});
  EXPECT_EQ(download(content_), "partial response without Content-Range");
  EXPECT_EQ(asked().size(), 5U);
  EXPECT_EQ(read_text(part(content_)), content_.substr(0, 20));
  EXPECT_EQ(counted(), 20U);
}

TEST_F(BlobDownload, FailsAtTheSecondContentWithAWrongDigest) {
  const std::string damaged(content_.size(), 'x');
  server_.always(url_path_, answer(200, damaged));
  EXPECT_EQ(download(content_), "a downloaded file failed the integrity check (" + sha256_hex(content_).substr(0, 16) +
                                    "...). The file on the server is damaged or was modified");
  EXPECT_THAT(log_.messages(), ElementsAre(integrity_failure(damaged), integrity_failure(damaged)));
  EXPECT_THAT(asked(), ElementsAre("all", "all"));
  EXPECT_THAT(clock_.sleeps(), IsEmpty());
  EXPECT_FALSE(exists(part(content_)));
  EXPECT_FALSE(exists(blob(content_)));
  EXPECT_EQ(counted(), 0U);
}

TEST_F(BlobDownload, ReportsAPartialFileThatCannotBeMade) {
  struct Case {
    std::function<void()> obstruct;
    uint32_t code;
  };
  std::unique_ptr<FileLock> lock;
  for (const Case& c : {Case{[&] { remove_tree(staging(L"dl")); }, ERROR_PATH_NOT_FOUND},
                        Case{[&] {
                               store_.create_folders();
                               write_text(part(content_), "held");
                               lock = std::make_unique<FileLock>(part(content_), FILE_SHARE_READ);
                             },
                             ERROR_SHARING_VIOLATION},
                        Case{[&] {
                               lock = nullptr;
                               store_.clear_staging();
                               make_folder(part(content_));
                             },
                             ERROR_ACCESS_DENIED}}) {
    c.obstruct();
    EXPECT_EQ(download(content_), "cannot create a download file: " + error_text(c.code));
  }
  EXPECT_THAT(server_.requests(), IsEmpty());
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(BlobDownload, ReportsABlobThatCannotBeStoredAndKeepsItsBytes) {
  server_.serve(url_path_, content_);
  remove_tree(staging(L"blobs"));
  EXPECT_EQ(download(content_), "cannot store a downloaded file: " + error_text(ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(read_text(part(content_)), content_);
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(BlobDownload, IsNotBegunAfterAStopWasRequested) {
  server_.serve(url_path_, content_);
  stop_workers_ = true;
  EXPECT_EQ(download(content_), "cancelled");
  stop_workers_ = false;
  ui_.cancel_requested = true;
  EXPECT_EQ(download(content_), "cancelled");
  write_text(blob(content_), content_);  // a stop says nothing about what is staged
  EXPECT_EQ(download(content_), "cancelled");
  EXPECT_EQ(read_text(blob(content_)), content_);
  EXPECT_THAT(server_.requests(), IsEmpty());
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_EQ(counted(), 0U);
}

using StoppedBlobDownload = WithEitherStop<BlobDownload>;
INSTANTIATE_TEST_SUITE_P(ByEitherFlag, StoppedBlobDownload, testing::Bool(), who_stops);

TEST_P(StoppedBlobDownload, EndsBetweenChunksAndKeepsThePartialFile) {
  write_text(part(content_), content_.substr(0, 10));
  server_.script(url_path_, {ScriptedResponse(status_line(206) + "Content-Range: bytes 10-31/32\r\nContent-Length: "
                                                                 "22\r\nConnection: close\r\n\r\n")
                                 .call([this] { request_stop(); })
                                 .then(content_.substr(10))});
  EXPECT_EQ(download(content_), "cancelled");
  EXPECT_EQ(read_text(part(content_)), content_.substr(0, 10));
  EXPECT_EQ(counted(), 10U);
  EXPECT_THAT(log_.messages(), ElementsAre(resuming(10)));
}

TEST_P(StoppedBlobDownload, EndsALongPauseWithinATenthOfASecond) {
  constexpr uint32_t in_the_longest_pause_ms = 2000 + 4000 + 8000 + 16000 + 5000;
  server_.always(url_path_, answer(500));
  clock_.on_sleep([this](uint32_t slept_ms) {
    if (slept_ms == in_the_longest_pause_ms) request_stop();
  });
  EXPECT_EQ(download(content_), "cancelled");
  EXPECT_EQ(clock_.total_slept_ms(), in_the_longest_pause_ms + 100);
  EXPECT_EQ(asked().size(), 5U);
}

}  // namespace
}  // namespace kvx::test
