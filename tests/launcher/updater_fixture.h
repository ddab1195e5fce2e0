// A whole update run in the test's process, in a folder of its own, against a server of its own, with a scripted user.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "launcher/updater.h"
#include "tests/support/release_builder.h"
#include "tests/support/scripted_server.h"
#include "tests/support/scripted_ui.h"
#include "tests/support/temp_folder.h"

namespace kvx::test {

class UpdaterFixture : public testing::Test {
 protected:
  UpdaterFixture();

  // One run and its result file.
  RunOutcome run();

  void publish(const ReleaseBuilder& release) { publish(release.json(), release); }
  // A signed document of any content.
  void publish_document(const std::string& document, const std::string& channel = "live");
  // Puts the release's files into the install folder.
  void install_files(const ReleaseBuilder& release) const;
  // Leaves what a finished update leaves for an offline start.
  void keep_installed_manifest(const std::string& document) const;

  [[nodiscard]] std::wstring installed(const std::wstring& name) const { return folder.path() + L'\\' + name; }
  [[nodiscard]] std::wstring staged(const std::wstring& name) const { return installed(L".kvx_patch\\" + name); }
  [[nodiscard]] std::wstring blob(const std::string& content) const;
  [[nodiscard]] std::wstring partial_blob(const std::string& content) const;
  [[nodiscard]] std::string state() const { return read_text(staged(L"state.txt")); }
  [[nodiscard]] std::string result() const { return read_text(staged(L"last_result.txt")); }
  [[nodiscard]] std::vector<std::string> log() const;
  [[nodiscard]] std::string log_header(const std::string& end = "") const;
  [[nodiscard]] std::string log_server(const std::string& channel = "live") const;

  TempFolder folder;
  ScriptedServer server;
  Options options;
  RunEnvironment environment;
  ScriptedUi ui;

 private:
  void publish(const std::string& document, const ReleaseBuilder& release);
};

// The result file of a run.
[[nodiscard]] std::string result_text(int code, int launched, const std::string& message);

// What an offline start says where no game is installed.
[[nodiscard]] UiEvent not_installed_prompt(const std::wstring& message);

}  // namespace kvx::test
