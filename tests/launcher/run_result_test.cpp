#include "launcher/run_result.h"

#include <gtest/gtest.h>

namespace kvx {
namespace {

TEST(RunResult, IsFourLines) {
  EXPECT_EQ(format_run_result(RunOutcome::success, true, "1.0.0", "up to date 1.4.2"),
            "code=0\nlaunched=1\nlauncher=1.0.0\nmessage=up to date 1.4.2\n");
  EXPECT_EQ(format_run_result(RunOutcome::could_not_start, false, "1.0.0", ""),
            "code=99\nlaunched=0\nlauncher=1.0.0\nmessage=\n");
}

TEST(RunResult, HasTheNumberOfEveryOutcome) {
  const struct {
    RunOutcome outcome;
    const char* code;
  } cases[] = {
      {RunOutcome::success, "0"},
      {RunOutcome::no_update_information, "10"},
      {RunOutcome::untrusted_manifest, "20"},
      {RunOutcome::unusable_manifest, "21"},
      {RunOutcome::download_failed, "30"},
      {RunOutcome::disk_full, "31"},
      {RunOutcome::game_running, "40"},
      {RunOutcome::already_running, "41"},
      {RunOutcome::install_failed, "42"},
      {RunOutcome::handed_over, "50"},
      {RunOutcome::cancelled, "60"},
      {RunOutcome::game_not_started, "70"},
      {RunOutcome::could_not_start, "99"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(format_run_result(item.outcome, false, "2.3", "m"),
              std::string("code=") + item.code + "\nlaunched=0\nlauncher=2.3\nmessage=m\n");
  }
}

TEST(RunResult, IsCutAt511Bytes) {
  const std::string head = "code=30\nlaunched=0\nlauncher=1.0.0\nmessage=";
  const size_t room = 511 - head.size();
  for (const size_t length : {room - 2, room - 1, room, room + 1, size_t{5000}}) {
    const std::string message(length, 'x');
    EXPECT_EQ(format_run_result(RunOutcome::download_failed, false, "1.0.0", message),
              (head + message + "\n").substr(0, 511))
        << length;
  }
}

}  // namespace
}  // namespace kvx
