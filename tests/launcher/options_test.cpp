#include "launcher/options.h"

#include <gtest/gtest.h>

#include "foundations/text.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_process.h"

namespace kvx {

namespace {

using Words = std::vector<std::wstring>;

// What a case expects; the rest is as without arguments.
struct Expected {
  std::wstring channel = {};
  std::wstring base_url = {};
  bool unattended = false;
  bool hidden = false;
  bool no_launch = false;
  bool repair = false;
  bool self_updated = false;
  uint32_t wait_pid = 0;
  Words forwarded_options = {};
  Words passthrough_args = {};
};

bool operator==(const Options& a, const Expected& b) {
  return a.channel == b.channel && a.base_url == b.base_url && a.unattended == b.unattended && a.hidden == b.hidden &&
         a.no_launch == b.no_launch && a.repair == b.repair && a.self_updated == b.self_updated &&
         a.wait_pid == b.wait_pid && a.forwarded_options == b.forwarded_options &&
         a.passthrough_args == b.passthrough_args;
}

TEST(Options, AreWhatTheArgumentsSay) {
  const struct {
    Words arguments;
    Expected options;
  } cases[] = {
      {{}, {}},
      {{L"--channel=beta"}, {.channel = L"beta", .forwarded_options = {L"--channel=beta"}}},
      {{L"--channel="}, {.forwarded_options = {L"--channel="}}},
      {{L"--channel=a=b"}, {.channel = L"a=b", .forwarded_options = {L"--channel=a=b"}}},
      {{L"--channel=beta", L"--channel="}, {.forwarded_options = {L"--channel=beta", L"--channel="}}},
      {{L"--test"}, {.channel = L"test", .forwarded_options = {L"--test"}}},
      {{L"--channel=beta", L"--test"}, {.channel = L"test", .forwarded_options = {L"--channel=beta", L"--test"}}},
      {{L"--test", L"--channel=beta"}, {.channel = L"beta", .forwarded_options = {L"--test", L"--channel=beta"}}},
      {{L"--base-url=https://a/b"}, {.base_url = L"https://a/b", .forwarded_options = {L"--base-url=https://a/b"}}},
      {{L"--base-url=x", L"--base-url=y"}, {.base_url = L"y", .forwarded_options = {L"--base-url=x", L"--base-url=y"}}},
      {{L"--unattended"}, {.unattended = true, .forwarded_options = {L"--unattended"}}},
      {{L"--hidden"}, {.hidden = true, .forwarded_options = {L"--hidden"}}},
      {{L"--no-launch"}, {.no_launch = true, .forwarded_options = {L"--no-launch"}}},
      {{L"--repair"}, {.repair = true, .forwarded_options = {L"--repair"}}},
      // The marks of a hand-over are not passed on.
      {{L"--self-updated"}, {.self_updated = true}},
      {{L"--wait-pid=1234"}, {.wait_pid = 1234}},
      {{L"--wait-pid=4294967295"}, {.wait_pid = 4294967295}},
      {{L"--wait-pid="}, {}},
      {{L"--wait-pid=abc"}, {}},
      {{L"--wait-pid=12abc"}, {.wait_pid = 12}},
      {{L"--wait-pid=5", L"--wait-pid=6"}, {.wait_pid = 6}},
      {{L"--wait-pid=5", L"--wait-pid=x"}, {}},
      // Unknown options are ignored; comparisons are exact.
      {{L"--CHANNEL=beta", L"--Channel=beta", L"--channel", L"--tests", L"--Test", L"--test=1", L"--unattended=1",
        L"--hidden ", L"--no-launc", L"--repair2", L"--self-update", L"--wait-pid", L"--base-url", L"---", L"--help"},
       {}},
      {{L"-channel=beta"}, {.passthrough_args = {L"-channel=beta"}}},
      {{L"/repair", L"-", L"", L"two words", L"a\"b"},
       {.passthrough_args = {L"/repair", L"-", L"", L"two words", L"a\"b"}}},
      {{L"first", L"--repair", L"second"},
       {.repair = true, .forwarded_options = {L"--repair"}, .passthrough_args = {L"first", L"second"}}},
      // "--" ends the options, once.
      {{L"--"}, {}},
      {{L"--", L"--repair"}, {.passthrough_args = {L"--repair"}}},
      {{L"--", L"--", L"--channel=x", L"y"}, {.passthrough_args = {L"--", L"--channel=x", L"y"}}},
      {{L"a", L"--hidden", L"--", L"--wait-pid=3", L"--nonsense"},
       {.hidden = true,
        .forwarded_options = {L"--hidden"},
        .passthrough_args = {L"a", L"--wait-pid=3", L"--nonsense"}}},
      {{L"--repair", L"--unattended", L"--test", L"--no-launch", L"--hidden", L"--repair"},
       {.channel = L"test",
        .unattended = true,
        .hidden = true,
        .no_launch = true,
        .repair = true,
        .forwarded_options = {L"--repair", L"--unattended", L"--test", L"--no-launch", L"--hidden", L"--repair"}}},
  };
  for (const auto& item : cases) {
    std::wstring words;
    for (const std::wstring& argument : item.arguments) words += L"<" + argument + L">";
    EXPECT_TRUE(parse_arguments(item.arguments) == item.options) << to_utf8(words);
  }
}

TEST(Options, AreReadFromTheProcessesCommandLine) {
  const test::TempFolder folder;
  const std::wstring program = folder / L"a program.exe";
  test::copy_test_program(program);
  const test::TestProcess process(
      program,
      LR"(--channel=beta "--base-url=https://h/a b/" plain --wait-pid=77 --repair -- --hidden "say \"hi\"" "")",
      folder.path());
  EXPECT_EQ(process.wait(), 0U);
  EXPECT_EQ(test::read_text(folder / L"started.txt"), "directory=" + to_utf8(folder.path()) +
                                                          "\n"
                                                          "argument=--channel=beta\n"
                                                          "argument=--base-url=https://h/a b/\n"
                                                          "argument=plain\n"
                                                          "argument=--wait-pid=77\n"
                                                          "argument=--repair\n"
                                                          "argument=--\n"
                                                          "argument=--hidden\n"
                                                          "argument=say \"hi\"\n"
                                                          "argument=\n"
                                                          "channel=beta\n"
                                                          "base_url=https://h/a b/\n"
                                                          "flags=00010\n"
                                                          "wait_pid=77\n"
                                                          "forwarded=--channel=beta\n"
                                                          "forwarded=--base-url=https://h/a b/\n"
                                                          "forwarded=--repair\n"
                                                          "passthrough=plain\n"
                                                          "passthrough=--hidden\n"
                                                          "passthrough=say \"hi\"\n"
                                                          "passthrough=\n"
                                                          "other_program=none\n");
}

}  // namespace
}  // namespace kvx
