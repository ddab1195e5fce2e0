#include "launcher/offline_start.h"

#include <gmock/gmock.h>

#include "foundations/text.h"
#include "manifest/managed_path.h"
#include "tests/launcher/updater_fixture.h"
#include "tests/support/signing_keys.h"
#include "tests/support/test_clock.h"
#include "tests/support/test_process.h"
#include "tests/support/window_driver.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

using test::not_installed_prompt;
using test::prompt_event;
using test::ReleaseBuilder;
using test::result_text;
using testing::Contains;
using testing::ElementsAre;

const std::wstring nothing_published = L"No game version is published on the update server for channel \"live\".";
const std::wstring warning =
    L"\n\nWarning: the last update did not finish. The game may not work correctly until the next successful update.";

// Every run meets a server that publishes nothing, unless a test says otherwise.
class OfflineStart : public test::UpdaterFixture {
 protected:
  OfflineStart() {
    options.no_launch = false;
    test::write_text(staged(L"state.txt"), "complete=1\n");
  }

  void install_game(const std::wstring& name) const { test::copy_test_program(installed(name)); }

  std::vector<std::string> started_arguments() const {
    EXPECT_TRUE(test::wait_until([&] { return test::exists(installed(L"started.txt")); }));
    std::vector<std::string> arguments;
    std::string text = test::read_text(installed(L"started.txt"));
    for (size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
      if (text.starts_with("argument=")) arguments.push_back(text.substr(9, end - 9));
    }
    return arguments;
  }

  test::TestClock clock;
  const ReleaseBuilder release_ = ReleaseBuilder().version("1.4.2").file("bin/game.exe", "x").arg("--fast").arg("a b");
};

TEST_F(OfflineStart, StartsTheInstalledVersionWithItsArguments) {
  install_game(L"bin\\game.exe");
  keep_installed_manifest(release_.json());
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);
  EXPECT_THAT(ui.prompts(),
              ElementsAre(prompt_event(nothing_published + L"\n\nThe installed version 1.4.2 will be started.",
                                       style_confirm)));
  EXPECT_THAT(started_arguments(), ElementsAre("--fast", "a b"));
  EXPECT_EQ(result(), result_text(10, 1, to_utf8(nothing_published)));
  EXPECT_THAT(log(), Contains("no usable update information (code 10): " + to_utf8(nothing_published)));
  EXPECT_THAT(log(), Contains("exit code 10 (launched=1)"));
  EXPECT_EQ(state(), "complete=1\n");
}

TEST_F(OfflineStart, OffersTheInstalledGameWithoutANetwork) {
  options.no_launch = true;
  test::write_text(installed(L"bin\\game.exe"), "game");
  keep_installed_manifest(release_.json());
  const auto expect_offer = [this](const std::string& message) {
    test::ScriptedUi user;
    user.answer(button_ok);
    Updater updater(options, user, environment);
    const RunOutcome outcome = updater.run();
    updater.write_result(outcome);
    EXPECT_EQ(outcome, RunOutcome::no_update_information);
    EXPECT_THAT(user.prompts(),
                ElementsAre(prompt_event(to_wide(message) + L"\n\nThe installed version 1.4.2 will be started.",
                                         style_confirm)));
    EXPECT_EQ(result(), result_text(10, 0, message));
    EXPECT_THAT(log(), Contains("--no-launch: not starting bin/game.exe"));
  };
  server.stop();
  expect_offer("Could not connect to the update server.\n(send: could not connect to the server)");
  environment.open_session = [](HttpSession&, const std::wstring&, std::string& error) {
    error = "no network here";
    return false;
  };
  expect_offer("The network could not be initialised (no network here).");
}

TEST_F(OfflineStart, TrustsTheKeptManifestOnlyWithItsSignature) {
  const std::string document = release_.json();
  const std::string signature = test::sign_manifest(document);
  const std::string other_product = ReleaseBuilder().file("a", "a").member("product", "\"other\"").json();
  const struct {
    const char* name;
    std::string manifest;
    std::string signature;
    const char* reason;
  } cases[] = {
      {"no signature", document, "-", "installed_manifest.sig cannot be read"},
      {"no manifest", "-", signature, "installed_manifest.json cannot be read"},
      {"tampered", document + " ", signature, "signature does not match the manifest"},
      {"truncated", document.substr(0, document.size() - 1), signature, "signature does not match the manifest"},
      {"signature truncated", document, signature.substr(0, 79), "signature file has an unknown format"},
      {"signature too long", document, signature + std::string(4097, ' '), "installed_manifest.sig cannot be read"},
      {"invalid", other_product, test::sign_manifest(other_product), "manifest is for a different product"},
  };
  install_game(L"KVX.exe");
  install_game(L"bin\\game.exe");
  for (const auto& item : cases) {
    DeleteFileW(installed(L"started.txt").c_str());
    for (const auto& [file, bytes] :
         {std::pair(L"installed_manifest.json", item.manifest), std::pair(L"installed_manifest.sig", item.signature)}) {
      DeleteFileW(staged(file).c_str());
      if (bytes != "-") test::write_text(staged(file), bytes);
    }
    test::ScriptedUi user;
    user.answer(button_ok);
    Updater updater(options, user, environment);
    updater.write_result(updater.run());
    EXPECT_THAT(user.prompts(), ElementsAre(prompt_event(nothing_published + L"\n\nThe installed game will be started.",
                                                         style_confirm)))
        << item.name;
    EXPECT_THAT(started_arguments(), ElementsAre()) << item.name;
    EXPECT_THAT(log(), Contains(std::string("installed manifest unusable: ") + item.reason)) << item.name;
  }
}

TEST_F(OfflineStart, WarnsWhenTheLastUpdateDidNotFinish) {
  options.no_launch = true;
  for (const char* state_text : {"complete=0\n", "", "complete=\n", "complete=11\n"}) {
    test::write_text(staged(L"state.txt"), state_text);
    for (const bool manifest_usable : {false, true}) {
      test::write_text(installed(L"KVX.exe"), "game");
      test::write_text(installed(L"bin\\game.exe"), "game");
      if (manifest_usable) keep_installed_manifest(release_.json());
      test::ScriptedUi user;
      user.answer(button_ok);
      Updater updater(options, user, environment);
      updater.write_result(updater.run());
      const std::wstring offer = manifest_usable ? L"\n\nThe installed version 1.4.2 will be started."
                                                 : L"\n\nThe installed game will be started.";
      EXPECT_THAT(user.prompts(), ElementsAre(prompt_event(nothing_published + offer + warning, style_confirm)));
    }
    DeleteFileW(staged(L"installed_manifest.json").c_str());
  }
}

TEST_F(OfflineStart, DoesNotStartTheGameWhenTheUserDeclines) {
  install_game(L"KVX.exe");
  for (const uint32_t answer : {button_cancel, button_yes, 0U}) {
    test::ScriptedUi user;
    user.answer(answer);
    Updater updater(options, user, environment);
    const RunOutcome outcome = updater.run();
    updater.write_result(outcome);
    EXPECT_EQ(outcome, RunOutcome::cancelled);
    EXPECT_EQ(result(), result_text(60, 0, to_utf8(nothing_published)));
  }
  EXPECT_FALSE(test::exists(installed(L"started.txt")));
}

TEST_F(OfflineStart, StartsWithoutAskingAnybodyWhenUnattended) {
  install_game(L"KVX.exe");
  ui.on_prompt([](const test::UiEvent& prompt) { return unattended_answer(prompt.style); });
  EXPECT_EQ(run(), RunOutcome::no_update_information);
  EXPECT_THAT(started_arguments(), ElementsAre());
  EXPECT_EQ(result(), result_text(10, 1, to_utf8(nothing_published)));
}

TEST_F(OfflineStart, SaysSoOnceWhenNoGameIsInstalled) {
  // The kept manifest names a program that is not there, although the default one is.
  test::write_text(installed(L"KVX.exe"), "game");
  keep_installed_manifest(release_.json());
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::no_update_information);
  EXPECT_THAT(ui.prompts(), ElementsAre(not_installed_prompt(nothing_published)));
  EXPECT_EQ(result(), result_text(10, 0, to_utf8(nothing_published)));
}

TEST_F(OfflineStart, ReportsAGameThatDoesNotStart) {
  test::write_text(installed(L"KVX.exe"), "no program");
  ui.answer(button_ok);
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::game_not_started);
  EXPECT_EQ(ui.prompts().size(), 2U);
  EXPECT_EQ(result(), result_text(70, 0, to_utf8(nothing_published)));
}

TEST_F(OfflineStart, KeepsTheCodeThatSaysWhyThereWasNoUpdate) {
  options.no_launch = true;
  test::write_text(installed(L"KVX.exe"), "game");
  publish_document("{\"product\":\"another\"}");
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::unusable_manifest);
  EXPECT_EQ(result(), result_text(21, 0, "The update information from the server is not for KVX."));
}

TEST_F(OfflineStart, CutsALongMessageInTheResultFile) {
  publish_document("{\"product\":\"KVX\",\"serial\":1,\"channel\":\"" + std::string(600, 'c') + "\"}");
  ui.answer(button_ok);
  EXPECT_EQ(run(), RunOutcome::unusable_manifest);
  EXPECT_EQ(result(),
            result_text(21, 0, "The update information from the server is for channel \"" + std::string(600, 'c'))
                .substr(0, 511));
}

}  // namespace
}  // namespace kvx
