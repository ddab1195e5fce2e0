// Path arithmetic on wide Windows paths. Only full_path asks the system anything; none touches the disk. Any thread.
#pragma once

#include <string>

namespace kvx {

// The path in the form that is free of the classic limit of 260 characters: "\\?\C:\x" for "C:\x",
// "\\?\UNC\server\share" for "\\server\share", unchanged when it already starts with "\\?\". The path must be full.
[[nodiscard]] std::wstring long_path(const std::wstring& path);

// The long form of a path for the length of one system call, without a copy where the path has that form already. The
// path must outlive it.
class LongPath {
 public:
  explicit LongPath(const std::wstring& path);
  LongPath(const LongPath&) = delete;  // a copy would refer into the original
  LongPath& operator=(const LongPath&) = delete;

  [[nodiscard]] const wchar_t* c_str() const { return path_.c_str(); }

 private:
  const std::wstring made_;
  const std::wstring& path_;
};

// The path without the prefixes that long_path adds.
[[nodiscard]] std::wstring without_long_path_prefix(const std::wstring& path);

// The absolute path without trailing separators; a drive root keeps its own ("C:\").
[[nodiscard]] std::wstring full_path(const std::wstring& path);

// Folder and name with one backslash between them; an empty folder gives the name alone.
[[nodiscard]] std::wstring join_path(const std::wstring& folder, const std::wstring& name);

// Everything before the last separator, empty when there is none; the parent of "C:\x" is "C:\".
[[nodiscard]] std::wstring parent_path(const std::wstring& path);

// Everything after the last separator, the whole path when there is none.
[[nodiscard]] std::wstring file_name(const std::wstring& path);

}  // namespace kvx
