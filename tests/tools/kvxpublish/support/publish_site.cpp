#include "tests/tools/kvxpublish/support/publish_site.h"

#include <windows.h>

#include <algorithm>
#include <gtest/gtest.h>

#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "manifest/built_in_keys.h"
#include "manifest/json.h"
#include "manifest/signature.h"
#include "tests/support/test_paths.h"
#include "tools/kvxpublish/commands/commands.h"

namespace kvx::test {
namespace {

void collect_files(const std::wstring& folder, const std::wstring& prefix, std::map<std::wstring, std::string>& files) {
  for (const std::wstring& name : list_folder(folder)) {
    const std::wstring path = join_path(folder, name);
    if (is_folder(path)) {
      files[prefix + name + L'\\'] = "";
      collect_files(path, prefix + name + L'\\', files);
    } else {
      files[prefix + name] = read_text(path);
    }
  }
}

std::string native(std::string path) {
  std::ranges::replace(path, '/', '\\');
  return path;
}

}  // namespace

std::vector<std::string> removals_of(const Manifest& manifest) {
  std::vector<std::string> paths;
  for (const ManifestRemoval& removal : manifest.remove) paths.push_back(removal.path);
  return paths;
}

std::string development_key(const std::string& name) {
  return native(source_path("keys/development/" + name + ".pem"));
}

std::wstring development_public_keys() { return to_wide(native(source_path("keys/development/public_keys.txt"))); }

std::wstring built_launcher() { return to_wide(native(build_path("KVXLauncher.exe"))); }

CommandResult kvxpublish(const std::vector<std::string>& arguments) {
  CapturedConsole console;
  return kvxpublish(arguments, console);
}

CommandResult kvxpublish(const std::vector<std::string>& arguments, CapturedConsole& console) {
  const int code = publish::run_command(arguments, console);
  return {code, console.data, console.messages};
}

PublishSite::PublishSite() {
  write_text(game(L"bin\\game.exe"), "the game");
  write_text(game(L"data\\a pack.bin"), "some data");
}

std::string PublishSite::game_folder() const { return to_utf8(folder_ / L"game"); }

std::string PublishSite::verify_hint(const std::string& channel, const std::string& public_keys) const {
  const std::string keys = public_keys.empty() ? "" : " --public-keys \"" + public_keys + '"';
  return "next: kvxpublish verify \"" + site_folder() + "\" --channel " + channel + keys + "\n";
}

std::string PublishSite::site_folder() const { return to_utf8(folder_ / L"site"); }

void PublishSite::remove_from_game(const std::wstring& name) const {
  EXPECT_NE(DeleteFileW(game(name).c_str()), 0);
  RemoveDirectoryW(parent_path(game(name)).c_str());  // fails when there is more in it
}

CommandResult PublishSite::pack(const std::vector<std::string>& more) const {
  std::map<std::string, std::string> single = {{"--out", site_folder()},
                                               {"--channel", "live"},
                                               {"--version", "1.0"},
                                               {"--exe", "bin/game.exe"},
                                               {"--key", development_key("primary")}};
  std::vector<std::string> arguments = {"pack", game_folder()};
  for (const std::string& option : more) {
    const std::string name = option.substr(0, option.find('='));
    if (single.contains(name)) {
      single[name] = option.substr(name.size() + 1);
    } else {
      arguments.push_back(option);
    }
  }
  if (single["--key"].empty()) arguments.emplace_back("--unsigned");
  for (const auto& [name, value] : single) {
    if (!value.empty()) arguments.push_back(std::string(name).append("=").append(value));
  }
  return kvxpublish(arguments);
}

Manifest PublishSite::published(const std::string& channel, bool signed_too) const {
  const std::wstring prefix = channel == "live" ? L"" : to_wide(channel) + L'\\';
  const std::string text = read_text(site(prefix + L"manifest.json"));
  JsonDocument document;
  Manifest manifest;
  std::string error;
  EXPECT_TRUE(parse_json(text, document, error)) << error;
  EXPECT_TRUE(read_manifest(document.root(), L"KVXLauncher.exe", manifest, error)) << error;
  if (signed_too) {
    std::string key_name;
    EXPECT_TRUE(verify_manifest(text, read_text(site(prefix + L"manifest.sig")), built_in_keys(), key_name, error))
        << error;
  }
  return manifest;
}

std::map<std::wstring, std::string> PublishSite::snapshot() const {
  std::map<std::wstring, std::string> files;
  collect_files(folder_ / L"site", L"", files);
  return files;
}

}  // namespace kvx::test
