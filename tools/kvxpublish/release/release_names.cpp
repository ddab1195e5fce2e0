#include "tools/kvxpublish/release/release_names.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

#include "foundations/text.h"
#include "tools/kvxpublish/platform/composed.h"

namespace kvx::publish {
namespace {

using Names = std::map<std::wstring, std::string>;  // what makes two names the same, and the name as it is written

constexpr std::array<std::wstring_view, 7> device_names = {L"CON",    L"PRN",     L"AUX",   L"NUL",
                                                           L"CONIN$", L"CONOUT$", L"CLOCK$"};
constexpr std::wstring_view port_digits = L"0123456789\u00B9\u00B2\u00B3";  // after COM and LPT

bool refuse(std::string text, Failure& failure) { return fail(ExitCode::refused, std::move(text), failure); }

std::string quoted(const std::string& path) { return '"' + path + '"'; }

std::wstring name_key(const std::string& path) { return to_upper(to_wide(composed(path))); }

// Every folder that the paths need, each under the first path that needs it.
Names folders_of(const std::vector<std::string>& paths) {
  Names folders;
  for (const std::string& path : paths) {
    for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
      folders.emplace(name_key(path.substr(0, slash)), path);
    }
  }
  return folders;
}

// Windows takes the name before the first dot, and counts neither the blanks after it nor what kind of digit it ends
// in.
bool is_device(const std::string& name) {
  std::wstring stem = to_wide(name.substr(0, name.find('.')));
  stem.erase(stem.find_last_not_of(L' ') + 1);
  stem = to_upper(stem);
  if (std::ranges::find(device_names, stem) != device_names.end()) return true;
  const bool is_port = stem.starts_with(L"COM") || stem.starts_with(L"LPT");
  return is_port && stem.size() == 4 && port_digits.find(stem[3]) != std::wstring_view::npos;
}

// As Windows counts a name's characters.
size_t utf16_units(const std::string& name) {
  size_t units = 0;
  for (const char character : name) {
    const auto byte = static_cast<uint8_t>(character);
    if ((byte & 0xC0) != 0x80) ++units;  // the first byte of a character
    if ((byte & 0xF8) == 0xF0) ++units;  // of one that UTF-16 has as two
  }
  return units;
}

bool check_name(const std::string& path, const std::string& name, Failure& failure) {
  if (utf16_units(name) > longest_name) {
    return refuse(quoted(path) + ": a name in this path has more than " + std::to_string(longest_name) +
                      " characters; shorten it",
                  failure);
  }
  return !is_device(name) ||
         refuse(quoted(path) + ": Windows takes " + quoted(name) + " for a device and not for a file; rename it",
                failure);
}

bool check_each_name(const std::string& path, Failure& failure) {
  for (size_t start = 0; start <= path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    if (!check_name(path, path.substr(start, end - start), failure)) return false;
    start = end + 1;
  }
  return true;
}

bool add_name(const std::string& path, Names& files, Failure& failure) {
  const auto [same, is_new] = files.emplace(name_key(path), path);
  return is_new || refuse(quoted(same->second) + " and " + quoted(path) +
                              ": the names differ only in upper and lower case or in their Unicode form, and are the "
                              "same file on Windows; rename one",
                          failure);
}

bool check_against_folders(const std::string& path, const std::wstring& key, const Names& folders, Failure& failure) {
  const auto folder = folders.find(key);
  return folder == folders.end() || refuse(quoted(path) + ": Windows takes this file and the folder of " +
                                               quoted(folder->second) + " for the same name; rename one",
                                           failure);
}

bool check_copy_name(const std::string& path, const std::wstring& key, const Names& files, const Names& folders,
                     Failure& failure) {
  const std::wstring copy = key + L".COPY";
  const auto file = files.find(copy);
  const auto folder = folders.find(copy);
  if (file == files.end() && folder == folders.end()) return true;
  return refuse(quoted(file != files.end() ? file->second : folder->second) + ": launchers use the name " +
                    quoted(path + ".copy") + " for a moment when they install " + quoted(path) + "; rename one",
                failure);
}

}  // namespace

bool check_release_names(const std::vector<std::string>& paths, Failure& failure) {
  Names files;
  for (const std::string& path : paths) {
    if (!check_each_name(path, failure) || !add_name(path, files, failure)) return false;
  }
  const Names folders = folders_of(paths);
  for (const auto& [key, path] : files) {
    if (!check_against_folders(path, key, folders, failure) || !check_copy_name(path, key, files, folders, failure)) {
      return false;
    }
  }
  return true;
}

bool check_names_against(const std::vector<std::string>& earlier, const std::vector<std::string>& paths,
                         Failure& failure) {
  const Names new_folders = folders_of(paths);
  const Names old_folders = folders_of(earlier);
  for (const std::string& path : earlier) {
    const auto folder = new_folders.find(name_key(path));
    if (folder == new_folders.end()) continue;
    return refuse(quoted(folder->second) + ": its folder " + quoted(path) +
                      " was a file in an earlier release, and launchers cannot put a folder in its place; choose "
                      "another name",
                  failure);
  }
  for (const std::string& path : paths) {
    if (!old_folders.contains(name_key(path))) continue;
    return refuse(quoted(path) +
                      ": was a folder in an earlier release, and launchers cannot put a file in its place; choose "
                      "another name",
                  failure);
  }
  return true;
}

}  // namespace kvx::publish
