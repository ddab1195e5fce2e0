#include "tests/e2e/player_folder.h"

#include <windows.h>
#include <winioctl.h>

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>

#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/test_paths.h"
#include "tests/support/test_process.h"

namespace kvx::test {
namespace {

constexpr size_t longest_shown_bytes = 60;
constexpr char line_end[] = "\r\n";
// "2026-01-31 12:34:56.789 [ 1234] "
constexpr char log_line_form[] = "dddd-dd-dd dd:dd:dd.ddd [";

std::string described_content(const std::string& content) {
  const bool printable = std::all_of(content.begin(), content.end(), [](char c) { return c >= ' ' && c <= '~'; });
  if (printable && content.size() <= longest_shown_bytes) return content;
  return std::to_string(content.size()) + " bytes " + sha256_hex(content).substr(0, 16);
}

std::wstring backslashed(const std::string& name) {
  std::wstring native = to_wide(name);
  std::replace(native.begin(), native.end(), L'/', L'\\');
  return native;
}

bool has_log_line_form(const std::string& line) {
  const std::string form = log_line_form;
  return line.size() > form.size() && std::equal(form.begin(), form.end(), line.begin(), [](char expected, char c) {
           return expected == 'd' ? c >= '0' && c <= '9' : c == expected;
         });
}

// The messages of a log's bytes.
std::vector<std::string> messages_of(const std::string& log) {
  std::vector<std::string> messages;
  for (size_t at = 0; at < log.size();) {
    const size_t end = log.find(line_end, at);  // a message may hold line feeds of its own
    if (end == std::string::npos) {
      ADD_FAILURE() << "a line without end: " << log.substr(at);
      break;
    }
    const std::string line = log.substr(at, end - at);
    EXPECT_TRUE(has_log_line_form(line)) << line;
    messages.push_back(line.substr(line.find("] ") + 2));
    at = end + 2;
  }
  return messages;
}

}  // namespace

PlayerFolder::PlayerFolder(std::wstring launcher_name, const std::wstring& below)
    : path_(below.empty() ? temp_.path() : temp_ / below), launcher_name_(std::move(launcher_name)) {
  copy_program(to_wide(build_path(KVX_LAUNCHER_PROGRAM)), launcher());
}

std::wstring PlayerFolder::file(const std::string& name) const { return path_ + L'\\' + backslashed(name); }

void PlayerFolder::write(const std::string& name, const std::string& content) const { write_text(file(name), content); }

void PlayerFolder::write_zeros(const std::string& name, uint64_t size) const {
  write(name, "");
  const FileHandle open(CreateFileW(file(name).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  DWORD count = 0;
  DeviceIoControl(open.get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &count, nullptr);
  LARGE_INTEGER end;
  end.QuadPart = static_cast<LONGLONG>(size);
  EXPECT_TRUE(SetFilePointerEx(open.get(), end, nullptr, FILE_BEGIN));
  EXPECT_TRUE(SetEndOfFile(open.get())) << "error " << GetLastError();
}

std::string PlayerFolder::read(const std::string& name) const { return read_text(file(name)); }

bool PlayerFolder::has(const std::string& name) const { return exists(file(name)); }

std::map<std::string, std::string> PlayerFolder::game_files() const {
  std::map<std::string, std::string> found;
  const std::function<void(const std::string&)> add = [&](const std::string& folder) {
    const std::vector<std::wstring> names = list_folder(folder.empty() ? path_ : file(folder));
    if (names.empty()) found[folder + "/"] = "";
    for (const std::wstring& wide_name : names) {
      const std::string name = (folder.empty() ? "" : folder + "/") + to_utf8(wide_name);
      if (name == ".kvx_patch" || name.starts_with("started.txt") || name == to_utf8(launcher_name_)) continue;
      if (is_folder(file(name))) {
        add(name);
      } else {
        found[name] = described_content(read(name));
      }
    }
  };
  add("");
  return found;
}

std::map<std::string, std::string> PlayerFolder::described(const Files& files) {
  std::map<std::string, std::string> result;
  for (const auto& [name, content] : files) result[name] = described_content(content);
  return result;
}

std::vector<std::string> PlayerFolder::records() const {
  std::vector<std::string> names;
  for (const std::wstring& name : list_folder(file(".kvx_patch"))) names.push_back(to_utf8(name));
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> PlayerFolder::staged() const {
  std::vector<std::string> names;
  for (const std::string folder : {"blobs", "dl"}) {
    for (const std::wstring& name : list_folder(file(".kvx_patch/" + folder))) {
      const std::string path = folder + "/" + to_utf8(name);
      if (is_folder(file(".kvx_patch/" + path))) {
        names.push_back(path + "/");
        continue;
      }
      FileStamp stamp;
      if (!file_stamp(file(".kvx_patch/" + path), stamp)) continue;  // a running launcher has just moved it
      names.push_back(path + " " + std::to_string(stamp.size));
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::map<std::string, std::string> PlayerFolder::state() const {
  std::map<std::string, std::string> values;
  if (!has(".kvx_patch/state.txt")) return values;
  std::istringstream lines(read(".kvx_patch/state.txt"));
  for (std::string line; std::getline(lines, line);) {
    const size_t equals = line.find('=');
    EXPECT_NE(equals, std::string::npos) << line;
    values[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return values;
}

std::vector<std::string> PlayerFolder::log_so_far() const {
  const FileHandle open(CreateFileW(file(".kvx_patch/launcher.log").c_str(), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0,
                                    nullptr));
  if (!open) return {};
  std::string log(GetFileSize(open.get(), nullptr), '\0');
  DWORD got = 0;
  EXPECT_TRUE(ReadFile(open.get(), log.data(), static_cast<DWORD>(log.size()), &got, nullptr));
  log.resize(log.rfind(line_end, got) == std::string::npos ? 0 : log.rfind(line_end, got) + 2);
  return messages_of(log);
}

std::vector<std::string> PlayerFolder::log_of(const std::string& name) const {
  return messages_of(read(".kvx_patch/" + name));
}

std::string staged_blob(const std::string& content) {
  return "blobs/" + sha256_hex(content) + " " + std::to_string(content.size());
}

std::string staged_part(const std::string& content, uint64_t size) {
  return "dl/" + sha256_hex(content) + ".part " + std::to_string(size);
}

}  // namespace kvx::test
