// A folder of a test's own, and plain reading and writing of files in it. Failures of the helpers fail the test.
#pragma once

#include <cstdint>
#include <string>

namespace kvx::test {

class TempFolder {
 public:
  TempFolder();  // an empty folder under the user's temporary folder
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder();  // with everything in it, read-only files included

  [[nodiscard]] const std::wstring& path() const { return path_; }
  // A path below the folder; `name` may have backslashes.
  [[nodiscard]] std::wstring operator/(const std::wstring& name) const { return path_ + L'\\' + name; }

 private:
  std::wstring path_;
};

// Makes missing parent folders.
void write_text(const std::wstring& path, const std::string& bytes);
// Fails the test when the file cannot be read.
[[nodiscard]] std::string read_text(const std::wstring& path);
[[nodiscard]] bool exists(const std::wstring& path);
void remove_tree(const std::wstring& path);

}  // namespace kvx::test
