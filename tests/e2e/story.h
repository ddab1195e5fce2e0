// What the stories about the built launcher have in common: a player's folder, an update server, one run at a time.
// A story reads as given, when, then:
//
//   TEST_P(EveryEnd, InstallsAfterTheQuestion) {
//     given_published(release);
//     when_started();
//     then_asks(question_prompt(L"..."), IDYES);
//     then_ends(0, launched, "updated to 1.0");
//     then_game_is(files_of(release));
//   }
//
// In a silent story the launcher runs with --unattended --hidden, and the same prompts must be answered without being
// shown; a story says so by deriving from InBothWays.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/e2e/player_folder.h"
#include "tests/e2e/prompt.h"
#include "tests/e2e/running_launcher.h"
#include "tests/support/release_builder.h"
#include "tests/support/scripted_server.h"
#include "tests/support/test_process.h"

namespace kvx::test {

struct HandOver;

enum class GameStart : uint8_t { not_launched, launched };
constexpr GameStart launched = GameStart::launched;
constexpr GameStart not_launched = GameStart::not_launched;

class Story : public testing::Test {
 protected:
  ~Story() override;

  // The launcher's options in this way of running.
  [[nodiscard]] virtual bool is_silent() const { return false; }

  // ---- given
  void given_published(const ReleaseBuilder& release) { release.publish(server_); }
  // Installs by a run of its own, without starting the game; the server's requests of it do not count.
  void given_installed(const ReleaseBuilder& release);

  // ---- when
  // `options` goes after the server's address and the way of running.
  void when_started(const std::wstring& options = L"");
  // The same of the launcher that a self-update brought.
  void when_the_new_launcher_is_started();
  // The same through another path of the launcher, from another working folder.
  void when_started_through(const std::wstring& program, const std::wstring& working_folder,
                            const std::wstring& options = L"");
  // Waits until the log has a line like this so many times.
  void when_it_has_logged(const std::string& line, int times = 1);
  // Goes on with the launcher that the run handed over to, which asks for the manifest and waits until the server
  // answers. To be announced before the run starts.
  void given_a_hand_over_is_awaited();
  void when_the_new_launcher_asks();
  void when_the_server_answers();
  void when_the_new_launcher_takes_over();  // both at once

  // ---- then
  void then_asks(const Prompt& expected, uint32_t answer);
  // The same, but the prompt stays until run().answer.
  void then_shows(const Prompt& expected);
  // The exit code and the four lines of the result file, cut at 511 bytes; in `message` "*" stands for any text.
  void then_ends(int code, GameStart game, const std::string& message);
  // The exit code of a run that got nowhere near its log; the result file is as the story left it, or absent.
  void then_ends_before_its_log(int code);
  // Between header, server line and exit line, every line of the log, in order; "*" stands for any text.
  void then_the_log_says(const std::vector<std::string>& lines, const std::string& channel = "live") const;
  // The same of a run that ended before it knew its channel and server: header, these lines, exit line.
  void then_the_log_says_only(const std::vector<std::string>& lines) const;
  // These lines, in this order, others between them allowed.
  void then_the_log_has(const std::vector<std::string>& lines) const;
  void then_the_log_lacks(const std::string& line) const;
  void then_game_is(const Files& files) const;
  void then_staged_is(const std::vector<std::string>& names) const;  // in any order
  void then_state_is(const std::map<std::string, std::string>& values) const;
  // "PATH" or "PATH bytes=5-" for a request with a range, in the order they came since the run began.
  void then_requests_are(const std::vector<std::string>& expected) const;
  // Waits for the game's record of its start and takes it away, so that the next start makes a new one.
  void then_game_was_started_with(const std::vector<std::string>& args) const;
  void then_game_was_not_started() const;

  [[nodiscard]] RunningLauncher& run() { return *run_; }
  [[nodiscard]] std::vector<std::string> requests() const;
  [[nodiscard]] size_t requests_before_this_run() const { return earlier_requests_; }

  // The files of a release as they lie in the player's folder.
  [[nodiscard]] static Files files_of(const ReleaseBuilder& release);
  // What the state holds after this release was installed.
  [[nodiscard]] static std::map<std::string, std::string> installed_state(const std::string& version,
                                                                          const std::string& serial,
                                                                          const std::string& channel = "live");
  // The content of a program that can be started as the game.
  [[nodiscard]] static const std::string& game_program();
  // Version 1.0, serial 1, of the game program and one data file.
  [[nodiscard]] static ReleaseBuilder first_release();
  // This release with one file more, data/big.bin, which is checked last and has no blob on the server.
  [[nodiscard]] static ReleaseBuilder with_a_big_file(ReleaseBuilder release, uint64_t size, const std::string& digest);
  [[nodiscard]] std::wstring in_folder(const std::wstring& name) const { return folder().path() + L'\\' + name; }

  // Made at first use, so that a story can choose its place.
  [[nodiscard]] const PlayerFolder& folder() const;
  void use_folder(std::unique_ptr<PlayerFolder> folder);

  ScriptedServer server_;

 private:
  [[nodiscard]] std::wstring command_line(const std::wstring& options) const;
  [[nodiscard]] std::string header_line() const;
  void wait_for_the_game_to_end() const;
  [[nodiscard]] std::string exit_line() const;
  [[nodiscard]] std::string last_result() const;
  void then_the_prompts_belong_to(int code) const;
  // A program that still runs would keep its file, and so the folder, on the disk.
  void leave_folder();

  mutable std::unique_ptr<PlayerFolder> folder_;
  std::optional<RunningLauncher> run_;
  std::string version_ = "1.0.0";  // of the launcher that runs
  std::wstring options_;
  std::shared_ptr<HandOver> hand_over_;
  size_t earlier_requests_ = 0;
  std::string earlier_result_;  // of the last run before this one, or "none"
  // The prompts of this run that it may have ended with: those after which it was not told to go on.
  std::vector<std::string> last_prompts_;
  int code_ = 0;
  GameStart game_ = GameStart::not_launched;
};

enum class Way : uint8_t { interactive, silent };

// A story that is told twice: with a person who answers, and with --unattended --hidden.
class InBothWays : public Story, public testing::WithParamInterface<Way> {
 protected:
  [[nodiscard]] bool is_silent() const override { return GetParam() == Way::silent; }
};

// A story that is told so for every row of a table. A row has a name, and PrintTo prints no more than that.
template <class Row>
class TableInBothWays : public Story, public testing::WithParamInterface<std::tuple<Way, Row>> {
 protected:
  [[nodiscard]] bool is_silent() const override { return std::get<Way>(this->GetParam()) == Way::silent; }
  [[nodiscard]] const Row& row() const { return std::get<Row>(this->GetParam()); }
};

#define KVX_TELL_ROWS_IN_BOTH_WAYS(fixture, rows)                                                           \
  INSTANTIATE_TEST_SUITE_P(                                                                                 \
      , fixture, testing::Combine(testing::Values(Way::interactive, Way::silent), testing::ValuesIn(rows)), \
      [](const auto& told) {                                                                                \
        const std::string way = std::get<0>(told.param) == Way::silent ? "Unattended" : "Interactive";      \
        return std::get<1>(told.param).name + way;                                                          \
      })

#define KVX_TELL_IN_BOTH_WAYS(fixture)                                                                    \
  INSTANTIATE_TEST_SUITE_P(, fixture, testing::Values(Way::interactive, Way::silent),                     \
                           [](const testing::TestParamInfo<Way>& way) {                                   \
                             return std::string(way.param == Way::silent ? "Unattended" : "Interactive"); \
                           })

}  // namespace kvx::test
