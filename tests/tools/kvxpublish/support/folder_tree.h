// A folder with everything in it, to compare with what it was.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace kvx::test {

// The content of every file by its path below the folder; folders end with a backslash and have none.
using FolderTree = std::map<std::wstring, std::string>;

[[nodiscard]] FolderTree folder_tree(const std::wstring& folder);

// Fails the test when the file is not there, or stays.
void remove_file(const std::wstring& path);

// Gives a file or a folder a time of last writing, in 100 ns units since 1601.
void set_last_write_time(const std::wstring& path, uint64_t time);

}  // namespace kvx::test
