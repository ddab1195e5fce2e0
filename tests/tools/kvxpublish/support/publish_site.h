// A game's folder and a site for the tests of the publisher's tool, and its commands as a person would type them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "manifest/manifest.h"
#include "tests/support/temp_folder.h"
#include "tests/tools/kvxpublish/support/captured_console.h"

namespace kvx::test {

struct CommandResult {
  int code = -1;
  std::string data;
  std::string messages;
};

[[nodiscard]] CommandResult kvxpublish(const std::vector<std::string>& arguments);
[[nodiscard]] CommandResult kvxpublish(const std::vector<std::string>& arguments, CapturedConsole& console);

class PublishSite {
 public:
  PublishSite();  // with a game of bin/game.exe and "data/a pack.bin"

  [[nodiscard]] std::wstring game(const std::wstring& name) const { return folder_ / (L"game\\" + name); }
  [[nodiscard]] std::wstring site(const std::wstring& name) const { return folder_ / (L"site\\" + name); }
  [[nodiscard]] std::wstring path(const std::wstring& name) const { return folder_ / name; }
  [[nodiscard]] std::string game_folder() const;
  [[nodiscard]] std::string site_folder() const;

  // Takes a file out of the game, and its folder when that becomes empty.
  void remove_from_game(const std::wstring& name) const;

  // `pack` of the game as version 1.0 for the channel "live", signed with the primary development key. `more` overrides
  // single options, because a later "--name=value" takes the earlier one's place; "--key=" leaves the release unsigned.
  [[nodiscard]] CommandResult pack(const std::vector<std::string>& more = {}) const;

  // The next step that a command names after it has signed.
  [[nodiscard]] std::string verify_hint(const std::string& channel = "live", const std::string& public_keys = {}) const;

  // The manifest that the site publishes, as launchers read it; its signature is checked when `signed_too` is set.
  [[nodiscard]] Manifest published(const std::string& channel = "live", bool signed_too = true) const;

  // Every file of the site by its path below it.
  [[nodiscard]] std::map<std::wstring, std::string> snapshot() const;

 private:
  TempFolder folder_;
};

// The paths that launchers delete for this release.
[[nodiscard]] std::vector<std::string> removals_of(const Manifest& manifest);

[[nodiscard]] std::string development_key(const std::string& name);
[[nodiscard]] std::wstring development_public_keys();
// The launcher of the build under test.
[[nodiscard]] std::wstring built_launcher();

}  // namespace kvx::test
