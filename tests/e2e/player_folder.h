// The folder of a player: the launcher's program in it, the game's files, and what the launcher keeps for itself.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/temp_folder.h"

namespace kvx::test {

// Paths relative to the folder, with "/", and the bytes.
using Files = std::map<std::string, std::string>;

class PlayerFolder {
 public:
  // With a copy of the built launcher under this name. The folder itself is TempFolder's, or `below` it.
  explicit PlayerFolder(std::wstring launcher_name = L"KVXLauncher.exe", const std::wstring& below = L"");

  [[nodiscard]] const std::wstring& path() const { return path_; }
  // With backslashes or slashes in `name`.
  [[nodiscard]] std::wstring file(const std::string& name) const;
  [[nodiscard]] std::wstring launcher() const { return path_ + L'\\' + launcher_name_; }
  [[nodiscard]] const std::wstring& launcher_name() const { return launcher_name_; }

  void write(const std::string& name, const std::string& content) const;
  // A file of so many zeros, which takes no space on the disk but long to read.
  void write_zeros(const std::string& name, uint64_t size) const;
  [[nodiscard]] std::string read(const std::string& name) const;
  [[nodiscard]] bool has(const std::string& name) const;

  // Every file of the game, by what a person would compare: short texts as they are, others by length and digest. The
  // launcher, its own folder and the test program's record do not count; folders end with "/" and count when empty.
  [[nodiscard]] std::map<std::string, std::string> game_files() const;
  // The same form, of expected files.
  [[nodiscard]] static std::map<std::string, std::string> described(const Files& files);

  // Names in .kvx_patch itself; names and sizes in its folders "dl" and "blobs", as "dl/NAME SIZE"; a folder ends with
  // "/".
  [[nodiscard]] std::vector<std::string> records() const;
  [[nodiscard]] std::vector<std::string> staged() const;

  [[nodiscard]] std::map<std::string, std::string> state() const;
  // The messages of the log, without time and thread; a line of another form fails the test.
  [[nodiscard]] std::vector<std::string> log() const { return log_of("launcher.log"); }
  // The same while the launcher runs: empty as long as there is no log, and without a line that is half written.
  [[nodiscard]] std::vector<std::string> log_so_far() const;
  [[nodiscard]] std::vector<std::string> previous_log() const { return log_of("launcher.prev.log"); }
  [[nodiscard]] std::string result() const { return read(".kvx_patch/last_result.txt"); }

 private:
  [[nodiscard]] std::vector<std::string> log_of(const std::string& name) const;

  TempFolder temp_;
  std::wstring path_;
  std::wstring launcher_name_;
};

// The names that contents have while they are staged, in the form of PlayerFolder::staged.
[[nodiscard]] std::string staged_blob(const std::string& content);
[[nodiscard]] std::string staged_part(const std::string& content, uint64_t size);

}  // namespace kvx::test
