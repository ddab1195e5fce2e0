#include "tests/e2e/story.h"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "launcher/running_program.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/support_table.h"

namespace kvx::test {
namespace {

using testing::ElementsAreArray;
using testing::UnorderedElementsAreArray;

MATCHER_P(Like, pattern, "is like \"" + pattern + "\"") { return fits_pattern(arg, pattern); }

std::vector<testing::Matcher<std::string>> patterns(const std::vector<std::string>& lines) {
  std::vector<testing::Matcher<std::string>> matchers;
  matchers.reserve(lines.size());
  for (const std::string& line : lines) matchers.emplace_back(Like(line));
  return matchers;
}

std::string header_additions(const std::wstring& options) {
  std::string additions;
  if (options.find(L"--self-updated") != std::wstring::npos) additions += " (after self-update)";
  if (options.find(L"--repair") != std::wstring::npos) additions += " --repair";
  return additions;
}

const SupportTable& support_table() {
  static const SupportTable table;
  return table;
}

std::string as_text(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "\n  " + line;
  return text;
}

}  // namespace

Story::~Story() { leave_folder(); }

void Story::given_installed(const ReleaseBuilder& release) {
  given_published(release);
  RunningLauncher installing(folder().launcher(),
                             L"--base-url=" + server_.base_url() + L" --unattended --hidden --no-launch",
                             folder().path());
  ASSERT_EQ(installing.wait_for_end(), 0U);
  ASSERT_EQ(folder().game_files(), PlayerFolder::described(files_of(release)));
}

// The second request for the manifest comes from the new launcher.
struct HandOver {
  KernelHandle reached{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  KernelHandle released{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  std::atomic<int> requests{0};
};

void Story::given_a_hand_over_is_awaited() {
  hand_over_ = std::make_shared<HandOver>();
  server_.on_request("manifest.json", [hand_over = hand_over_](const RecordedRequest&) {
    if (++hand_over->requests != 2) return;
    SetEvent(hand_over->reached.get());
    WaitForSingleObject(hand_over->released.get(), usual_limit_ms);
  });
}

void Story::when_the_new_launcher_asks() {
  ASSERT_EQ(WaitForSingleObject(hand_over_->reached.get(), usual_limit_ms), WAIT_OBJECT_0) << "no hand-over";
  constexpr std::string_view handed_over = "handing over to pid ";
  uint32_t process_id = 0;
  for (const std::string& line : folder().previous_log()) {
    const size_t at = line.find(handed_over);
    if (at != std::string::npos) process_id = std::stoul(line.substr(at + handed_over.size()));
  }
  ASSERT_NE(process_id, 0U) << "the old launcher did not log which process takes over";
  run_.emplace(process_id);
  version_ = "1.0.1";
  options_ += L" --self-updated";
}

void Story::when_the_server_answers() { SetEvent(hand_over_->released.get()); }

void Story::when_the_new_launcher_takes_over() {
  when_the_new_launcher_asks();
  when_the_server_answers();
}

void Story::when_started(const std::wstring& options) {
  when_started_through(folder().launcher(), folder().path(), options);
}

void Story::when_the_new_launcher_is_started() {
  when_started();
  version_ = "1.0.1";
}

void Story::when_started_through(const std::wstring& program, const std::wstring& working_folder,
                                 const std::wstring& options) {
  version_ = "1.0.0";
  options_ = options;
  earlier_requests_ = server_.requests().size();
  earlier_result_ = last_result();
  last_prompts_.clear();
  run_.emplace(program, command_line(options), working_folder);
}

void Story::when_it_has_logged(const std::string& line, int times) {
  ASSERT_TRUE(wait_until([&] {
    const std::vector<std::string> log = folder().log_so_far();
    return std::count_if(log.begin(), log.end(),
                         [&](const std::string& logged) { return fits_pattern(logged, line); }) >= times;
  })) << "never logged: "
      << line << "\nin" << as_text(folder().log_so_far());
}

void Story::then_asks(const Prompt& expected, uint32_t answer) {
  if (is_silent()) return;
  then_shows(expected);
  run().answer(answer);
  if (answer == IDRETRY || answer == IDYES) last_prompts_.pop_back();
}

void Story::then_shows(const Prompt& expected) {
  if (is_silent()) return;
  const Prompt shown = run().wait_for_prompt();
  EXPECT_TRUE(fits(shown, expected)) << "expected " << expected << "\nshown    " << shown;
  EXPECT_TRUE(support_table().explains_message(to_utf8(shown.text))) << "docs/support.md does not explain " << shown;
  last_prompts_.push_back(to_utf8(shown.text));
}

void Story::then_the_prompts_belong_to(int code) const {
  if (code == 0) return;
  for (const std::string& text : last_prompts_) {
    EXPECT_TRUE(support_table().explains_message(text, code))
        << "docs/support.md does not say that " << code << " is the code of \"" << text << "\"";
  }
}

void Story::then_ends(int code, GameStart game, const std::string& message) {
  constexpr size_t longest_result_bytes = 511;
  code_ = code;
  game_ = game;
  ASSERT_EQ(run().wait_for_end(is_silent()), static_cast<uint32_t>(code));
  then_the_prompts_belong_to(code);
  if (game == GameStart::launched) wait_for_the_game_to_end();
  const std::string expected = "code=" + std::to_string(code) +
                               "\nlaunched=" + (game == GameStart::launched ? "1" : "0") + "\nlauncher=" + version_ +
                               "\nmessage=" + message + "\n";
  const std::string result = folder().result();
  EXPECT_THAT(result, Like(expected.substr(0, longest_result_bytes)));
  if (result.size() == longest_result_bytes) return;  // its message is cut off
  const size_t shown = std::min(result.size(), result.find("message=") + std::string_view("message=").size());
  EXPECT_TRUE(support_table().explains_result(code, result.substr(shown, result.size() - shown - 1)))
      << "docs/support.md does not explain " << result;
}

// The next run must not find a game that is just ending.
void Story::wait_for_the_game_to_end() const {
  constexpr std::string_view before_id = " (pid ";
  for (const std::string& line : folder().log()) {
    const size_t at = line.rfind(before_id);
    if (!line.starts_with("started ") || at == std::string::npos) continue;
    const KernelHandle game(OpenProcess(SYNCHRONIZE, FALSE, std::stoul(line.substr(at + before_id.size()))));
    if (game) WaitForSingleObject(game.get(), usual_limit_ms);
  }
}

void Story::then_ends_before_its_log(int code) {
  ASSERT_EQ(run().wait_for_end(is_silent()), static_cast<uint32_t>(code));
  then_the_prompts_belong_to(code);
  EXPECT_EQ(last_result(), earlier_result_);
}

std::string Story::last_result() const {
  return folder().has(".kvx_patch/last_result.txt") ? folder().result() : "none";
}

void Story::then_the_log_says(const std::vector<std::string>& lines, const std::string& channel) const {
  std::vector<std::string> whole = {header_line(), "channel=" + channel + " server=" + to_utf8(server_.base_url())};
  whole.insert(whole.end(), lines.begin(), lines.end());
  whole.push_back(exit_line());
  EXPECT_THAT(folder().log(), ElementsAreArray(patterns(whole)));
}

void Story::then_the_log_says_only(const std::vector<std::string>& lines) const {
  std::vector<std::string> whole = {header_line()};
  whole.insert(whole.end(), lines.begin(), lines.end());
  whole.push_back(exit_line());
  EXPECT_THAT(folder().log(), ElementsAreArray(patterns(whole)));
}

void Story::then_the_log_has(const std::vector<std::string>& lines) const {
  const std::vector<std::string> log = folder().log();
  auto from = log.begin();
  for (const std::string& line : lines) {
    from = std::find_if(from, log.end(), [&](const std::string& logged) { return fits_pattern(logged, line); });
    ASSERT_NE(from, log.end()) << "no line, or not in this place: " << line << "\nin" << as_text(log);
    ++from;
  }
}

void Story::then_the_log_lacks(const std::string& line) const {
  for (const std::string& logged : folder().log()) EXPECT_FALSE(fits_pattern(logged, line)) << logged;
}

void Story::then_game_is(const Files& files) const { EXPECT_EQ(folder().game_files(), PlayerFolder::described(files)); }

void Story::then_staged_is(const std::vector<std::string>& names) const {
  EXPECT_THAT(folder().staged(), UnorderedElementsAreArray(names));
}

void Story::then_state_is(const std::map<std::string, std::string>& values) const {
  EXPECT_EQ(folder().state(), values);
}

void Story::then_requests_are(const std::vector<std::string>& expected) const {
  EXPECT_THAT(requests(), ElementsAreArray(expected));
}

std::vector<std::string> Story::requests() const {
  std::vector<std::string> described;
  const std::vector<RecordedRequest> all = server_.requests();
  for (size_t i = earlier_requests_; i < all.size(); ++i) {
    const std::optional<std::string> range = all[i].header("Range");
    described.push_back(all[i].target.substr(1) + (range ? " " + *range : ""));
  }
  return described;
}

void Story::then_game_was_started_with(const std::vector<std::string>& args) const {
  ASSERT_TRUE(wait_until([this] { return folder().has("started.txt"); })) << "the game did not start";
  std::string expected = "directory=" + to_utf8(folder().path()) + "\n";
  for (const std::string& argument : args) expected += "argument=" + argument + "\n";
  const std::string record = folder().read("started.txt");
  EXPECT_EQ(record.substr(0, record.find("channel=")), expected);
  EXPECT_NE(DeleteFileW(folder().file("started.txt").c_str()), 0);
}

void Story::then_game_was_not_started() const { EXPECT_FALSE(folder().has("started.txt")); }

Files Story::files_of(const ReleaseBuilder& release) {
  Files files;
  for (const ReleaseBuilder::File& file : release.files()) files[file.path] = file.content;
  return files;
}

std::map<std::string, std::string> Story::installed_state(const std::string& version, const std::string& serial,
                                                          const std::string& channel) {
  return {{"complete", "1"},
          {"installed.channel", channel},
          {"installed.serial", serial},
          {"installed.version", version},
          {"serial." + channel, serial},
          {"updating.serial", serial}};
}

const std::string& Story::game_program() {
  static const std::string bytes = test_program_bytes();
  return bytes;
}

ReleaseBuilder Story::first_release() {
  return ReleaseBuilder().version("1.0").serial(1).file("bin/game.exe", game_program()).file("data/a.txt", "a of 1.0");
}

ReleaseBuilder Story::with_a_big_file(ReleaseBuilder release, uint64_t size, const std::string& digest) {
  const auto entry = [](const std::string& path, uint64_t bytes, const std::string& sha256) {
    return "{\"path\":\"" + path + "\",\"size\":" + std::to_string(bytes) + ",\"sha256\":\"" + sha256 + "\"}";
  };
  std::string entries;
  for (const ReleaseBuilder::File& file : release.files()) {
    entries += entry(file.path, file.content.size(), sha256_hex(file.content)) + ",";
  }
  return release.member("files", "[" + entries + entry("data/big.bin", size, digest) + "]");
}

const PlayerFolder& Story::folder() const {
  if (!folder_) folder_ = std::make_unique<PlayerFolder>();
  return *folder_;
}

void Story::use_folder(std::unique_ptr<PlayerFolder> folder) {
  leave_folder();
  folder_ = std::move(folder);
}

void Story::leave_folder() {
  run_.reset();
  std::wstring program;
  if (folder_) static_cast<void>(wait_until([&] { return !find_running_program(folder_->path(), program); }));
  folder_.reset();
}

std::wstring Story::command_line(const std::wstring& options) const {
  return L"--base-url=" + server_.base_url() + (is_silent() ? L" --unattended --hidden " : L" ") + options;
}

std::string Story::header_line() const {
  return "KVXLAUNCHER-VERSION:" + version_ + "; install=\"" + to_utf8(folder().path()) + "\" self=\"" +
         to_utf8(folder().launcher_name()) + "\"" + header_additions(options_);
}

std::string Story::exit_line() const {
  return "exit code " + std::to_string(code_) + " (launched=" + (game_ == GameStart::launched ? "1" : "0") + ")";
}

}  // namespace kvx::test
