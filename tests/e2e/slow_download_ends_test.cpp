// Downloads that go on failing. The launcher's own pauses add up to more than two and a half minutes before it gives
// up: 2 + 4 + 8 + 16 + 32 + 32 + 32 + 32 seconds.
#include <algorithm>
#include <gtest/gtest.h>

#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/e2e/update_texts.h"

namespace kvx::test {
namespace {

constexpr size_t attempts = 9;
constexpr uint32_t limit_ms = 230000;
constexpr uint32_t pauses_ms[] = {2000, 4000, 8000, 16000, 32000, 32000, 32000, 32000};

class SlowDownload : public InBothWays {
 protected:
  void given_an_update() {
    given_installed(first_release());
    given_published(next_release(content_));
  }

  // Ends with the last attempt's reason; `reasons` are those of the earlier ones.
  void then_it_fails(const std::string& reason, const std::vector<std::string>& reasons) {
    ASSERT_EQ(reasons.size(), attempts - 1);
    then_asks(download_failed_prompt(reason), IDOK);
    then_ends(30, not_launched, reason);
    std::vector<std::string> lines = {
        "manifest: * bytes, signature OK (key primary)",
        "manifest: version 1.1 serial 2, 2 files, 0 removals, exe bin/game.exe",
        "update to 1.1: 1 files to replace (1 unique, 100 bytes, 0 already staged), 0 to remove",
        "disk: * bytes free, 100 needed"};
    for (size_t i = 0; i < reasons.size(); ++i) {
      lines.push_back(interrupted_line(content_, 0, reasons[i], pauses_ms[i]));
    }
    lines.push_back("download failed: " + reason);
    then_the_log_says(lines);
    then_game_is(files_of(first_release()));
    then_staged_is({staged_part(content_, 0)});
    then_state_is(installed_state("1.0", "1"));
    then_game_was_not_started();
  }

  [[nodiscard]] size_t interruptions() const {
    const std::vector<std::string> log = folder().log_so_far();
    return static_cast<size_t>(std::count_if(log.begin(), log.end(), [](const std::string& line) {
      return line.find(" interrupted at ") != std::string::npos;
    }));
  }

  const std::string content_ = std::string(100, 'n');
  const std::string blob_ = blob_url_path(content_);
};
// Told once: each waits for minutes, and the prompt at the end is one that quicker stories show.
INSTANTIATE_TEST_SUITE_P(, SlowDownload, testing::Values(Way::silent),
                         [](const testing::TestParamInfo<Way>&) { return std::string("Unattended"); });

TEST_P(SlowDownload, FailsAtTheNinthAttemptInARowThatBringsNothing) {
  given_an_update();
  const std::string closed_early = "the connection closed before the download finished";
  const std::vector<int> statuses = {400, 401, 408, 429, 500, 502, 504};
  std::vector<ScriptedResponse> answers = {answer_without_length(200, "")};
  std::vector<std::string> reasons = {closed_early};
  for (const int status : statuses) {
    answers.push_back(answer(status));
    reasons.push_back("the server answered HTTP " + std::to_string(status));
  }
  answers.push_back(answer(503));
  server_.script(blob_, answers);
  const size_t earlier_requests = server_.requests().size();
  when_started();
  ASSERT_TRUE(server_.wait_for_requests(earlier_requests + 2 + attempts, limit_ms));
  then_it_fails("the server answered HTTP 503", reasons);
  std::vector<std::string> requests(attempts, blob_);
  requests.insert(requests.begin(), {"manifest.json", "manifest.sig"});
  then_requests_are(requests);

  when_started();
  then_ends(0, launched, "updated to 1.1");
  then_game_is(files_of(next_release(content_)));
}

TEST_P(SlowDownload, FailsAtTheNinthAttemptWhenTheServerIsGone) {
  given_an_update();
  const Gate gate;
  server_.script(blob_, {ScriptedResponse().wait_for(gate)});
  when_started();
  ASSERT_TRUE(gate.wait_until_reached());
  server_.stop();
  ASSERT_TRUE(wait_until([this] { return interruptions() == attempts - 1; }, limit_ms));
  const std::string gone = "send: could not connect to the server";
  std::vector<std::string> reasons(attempts - 1, gone);
  reasons[0] = "*";  // of the request that the server was gone in the middle of
  then_it_fails(gone, reasons);
}

}  // namespace
}  // namespace kvx::test
