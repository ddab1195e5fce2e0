// The program's file and folder operations. All take full wide paths of any length and add the long-path prefix
// themselves. Nothing throws for a file-system error: an operation returns false, and where the caller reports the
// reason, `error` receives the Windows error code (for error_text).
//
// Any thread may call them, but no two threads may work on the same path at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "foundations/stop_signal.h"

namespace kvx {

struct FileStamp {
  uint64_t size = 0;             // bytes
  uint64_t last_write_time = 0;  // 100 ns units since 1601
  uint32_t attributes = 0;       // FILE_ATTRIBUTE_ flags
};

[[nodiscard]] bool is_folder(const std::wstring& path);

// True for anything that exists and is not a folder.
[[nodiscard]] bool is_file(const std::wstring& path);

// One attribute query, no open. Fails for a folder and for a file that is not there; `folder_is_missing` is then true
// when its folder is not there either.
[[nodiscard]] bool file_stamp(const std::wstring& path, FileStamp& stamp, bool& folder_is_missing);
[[nodiscard]] bool file_stamp(const std::wstring& path, FileStamp& stamp);

// Makes the folder and its missing parents. Succeeds when it already exists; fails when a file has its name.
[[nodiscard]] bool create_folders(const std::wstring& path, uint32_t& error);
[[nodiscard]] bool create_folders(const std::wstring& path);

struct FolderEntry {
  std::wstring name;
  uint64_t size = 0;  // bytes, of a file
  bool is_folder = false;
};

// All entries but "." and "..", in the system's order; empty when the folder is missing or unreadable.
[[nodiscard]] std::vector<FolderEntry> list_entries(const std::wstring& folder);

// Their names alone.
[[nodiscard]] std::vector<std::wstring> list_folder(const std::wstring& folder);

// On failure, also for a file of more than `limit` bytes, `bytes` is empty.
[[nodiscard]] bool read_file(const std::wstring& path, uint64_t limit, std::string& bytes);

// Writes a sibling named `path` + ".tmp", flushes it to the disk and moves it into place, so that `path` never holds
// half of its content. Waits like move_file to move it, but fails at once where the sibling cannot be opened, for
// example because a program holds one left behind. On failure the old file is untouched, and what was written is
// deleted.
[[nodiscard]] bool write_file_atomic(const std::wstring& path, const std::string& bytes, uint32_t& error,
                                     const StopSignal* stop = nullptr);
[[nodiscard]] bool write_file_atomic(const std::wstring& path, const std::string& bytes);

// Replaces an existing target, also a read-only one. Waits out programs that hold a file (sharing, lock and access
// errors) for about 6 seconds, or a moment longer than until `stop`, which may be null, is requested; any other error
// fails at once.
[[nodiscard]] bool move_file(const std::wstring& from, const std::wstring& to, uint32_t& error,
                             const StopSignal* stop = nullptr);

// Waits like move_file, and deletes read-only files too. A file that is already gone counts as deleted; `error` then
// still receives the code.
[[nodiscard]] bool delete_file(const std::wstring& path, uint32_t& error, const StopSignal* stop = nullptr);

// One try of delete_file, for callers with a waiting schedule of their own.
[[nodiscard]] bool delete_file_once(const std::wstring& path, uint32_t& error);

// Overwrites an existing target. No retries.
[[nodiscard]] bool copy_file(const std::wstring& from, const std::wstring& to, uint32_t& error);

// Puts the content of an existing file on the disk. Waits like move_file; a read-only file loses that attribute.
[[nodiscard]] bool flush_file(const std::wstring& path, uint32_t& error);

void clear_read_only(const std::wstring& path);

// Bytes that this user may still write on the folder's volume, 0 when unknown.
[[nodiscard]] uint64_t free_space(const std::wstring& folder);

}  // namespace kvx
