#include "foundations/files.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include "foundations/clock.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/write_all.h"

namespace kvx {
namespace {

constexpr size_t chunk_bytes = 1048576;

constexpr uint32_t retry_attempts = 10;
constexpr uint32_t first_retry_pause_ms = 150;
constexpr uint32_t retry_pause_step_ms = 100;

uint64_t join_words(DWORD high, DWORD low) { return (uint64_t{high} << 32) | low; }

DWORD attributes_of(const std::wstring& path) { return GetFileAttributesW(LongPath(path).c_str()); }

// Another program's grip on a file, which often ends by itself.
bool is_passing(uint32_t error) {
  return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_ACCESS_DENIED;
}

// False when a stop was requested before the pause was over.
bool pause(uint32_t milliseconds, const StopSignal* stop) {
  constexpr uint32_t poll_ms = 100;
  while (milliseconds > 0) {
    if (stop != nullptr && stop->requested()) return false;
    const uint32_t step_ms = stop == nullptr ? milliseconds : std::min(milliseconds, poll_ms);
    sleep_ms(step_ms);
    milliseconds -= step_ms;
  }
  return true;
}

// Calls `attempt` until it succeeds, fails with an error that will not pass, or has had all its tries. After a stop
// there is one more, a moment later, but none beyond the last.
template <typename Attempt>
bool with_retries(Attempt attempt, uint32_t& error, const StopSignal* stop) {
  error = 0;
  bool stopped = false;
  for (uint32_t tries = 0;;) {
    if (attempt(error)) return true;
    if (!is_passing(error) || stopped) return false;
    stopped = !pause(first_retry_pause_ms + retry_pause_step_ms * tries, stop);
    if (stopped) sleep_ms(first_retry_pause_ms);
    ++tries;
    if (tries == retry_attempts) return false;
  }
}

bool move_file_once(const std::wstring& from, const std::wstring& to, uint32_t& error) {
  if (MoveFileExW(LongPath(from).c_str(), LongPath(to).c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) !=
      0) {
    return true;
  }
  error = GetLastError();
  if (error == ERROR_ACCESS_DENIED) clear_read_only(to);  // a read-only target refuses replacement
  return false;
}

bool flush_file_once(const std::wstring& path, uint32_t& error) {
  const FileHandle file(CreateFileW(LongPath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file) return flush_to_disk(file.get(), error);
  error = GetLastError();
  if (error == ERROR_ACCESS_DENIED) clear_read_only(path);
  return false;
}

bool read_exactly(HANDLE file, std::string& bytes) {
  size_t filled = 0;
  while (filled < bytes.size()) {
    const DWORD wanted = static_cast<DWORD>(std::min(bytes.size() - filled, chunk_bytes));
    DWORD got = 0;
    if (ReadFile(file, bytes.data() + filled, wanted, &got, nullptr) == 0 || got == 0) return false;
    filled += got;
  }
  return true;
}

bool query_free_space(const std::wstring& folder, uint64_t& bytes) {
  ULARGE_INTEGER available{};
  if (GetDiskFreeSpaceExW(folder.c_str(), &available, nullptr, nullptr) == 0) return false;
  bytes = available.QuadPart;
  return true;
}

}  // namespace

bool is_folder(const std::wstring& path) {
  const DWORD attributes = attributes_of(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool is_file(const std::wstring& path) {
  const DWORD attributes = attributes_of(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool file_stamp(const std::wstring& path, FileStamp& stamp) {
  bool ignored = false;
  return file_stamp(path, stamp, ignored);
}

bool file_stamp(const std::wstring& path, FileStamp& stamp, bool& folder_is_missing) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  const bool found = GetFileAttributesExW(LongPath(path).c_str(), GetFileExInfoStandard, &data) != 0;
  folder_is_missing = !found && GetLastError() == ERROR_PATH_NOT_FOUND;
  if (!found) return false;
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return false;
  stamp.size = join_words(data.nFileSizeHigh, data.nFileSizeLow);
  stamp.last_write_time = join_words(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
  stamp.attributes = data.dwFileAttributes;
  return true;
}

bool create_folders(const std::wstring& path, uint32_t& error) {
  error = ERROR_PATH_NOT_FOUND;
  if (path.empty()) return false;
  if (is_folder(path)) return true;
  const std::wstring parent = parent_path(path);
  if (!parent.empty() && parent != path && !create_folders(parent, error)) return false;
  if (CreateDirectoryW(LongPath(path).c_str(), nullptr) != 0) return true;
  error = GetLastError();
  return error == ERROR_ALREADY_EXISTS && is_folder(path);
}

bool create_folders(const std::wstring& path) {
  uint32_t error = 0;
  return create_folders(path, error);
}

std::vector<FolderEntry> list_entries(const std::wstring& folder) {
  std::vector<FolderEntry> entries;
  WIN32_FIND_DATAW found;
  const FindHandle search(FindFirstFileExW(long_path(join_path(folder, L"*")).c_str(), FindExInfoBasic, &found,
                                           FindExSearchNameMatch, nullptr, 0));
  if (!search) return entries;
  do {
    const std::wstring name = found.cFileName;
    if (name == L"." || name == L"..") continue;
    entries.push_back({name, join_words(found.nFileSizeHigh, found.nFileSizeLow),
                       (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0});
  } while (FindNextFileW(search.get(), &found) != 0);
  return entries;
}

std::vector<std::wstring> list_folder(const std::wstring& folder) {
  std::vector<std::wstring> names;
  for (FolderEntry& entry : list_entries(folder)) names.push_back(std::move(entry.name));
  return names;
}

bool read_file(const std::wstring& path, uint64_t limit, std::string& bytes) {
  bytes.clear();
  const FileHandle file(CreateFileW(LongPath(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  LARGE_INTEGER size;
  if (GetFileSizeEx(file.get(), &size) == 0 || std::cmp_greater(size.QuadPart, limit)) return false;
  bytes.resize(static_cast<size_t>(size.QuadPart));
  if (read_exactly(file.get(), bytes)) return true;
  bytes.clear();
  return false;
}

bool write_file_atomic(const std::wstring& path, const std::string& bytes, uint32_t& error, const StopSignal* stop) {
  const std::wstring temporary = path + L".tmp";
  FileHandle file(CreateFileW(LongPath(temporary).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) {
    error = GetLastError();
    return false;
  }
  const bool on_disk = write_all(file.get(), bytes.data(), bytes.size(), error) && flush_to_disk(file.get(), error);
  file.reset();
  if (on_disk && move_file(temporary, path, error, stop)) return true;
  DeleteFileW(LongPath(temporary).c_str());
  return false;
}

bool write_file_atomic(const std::wstring& path, const std::string& bytes) {
  uint32_t error = 0;
  return write_file_atomic(path, bytes, error);
}

bool move_file(const std::wstring& from, const std::wstring& to, uint32_t& error, const StopSignal* stop) {
  return with_retries([&](uint32_t& attempt_error) { return move_file_once(from, to, attempt_error); }, error, stop);
}

bool delete_file(const std::wstring& path, uint32_t& error, const StopSignal* stop) {
  return with_retries([&](uint32_t& attempt_error) { return delete_file_once(path, attempt_error); }, error, stop);
}

bool delete_file_once(const std::wstring& path, uint32_t& error) {
  if (DeleteFileW(LongPath(path).c_str()) != 0) return true;
  error = GetLastError();
  if (error == ERROR_ACCESS_DENIED) clear_read_only(path);
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

bool copy_file(const std::wstring& from, const std::wstring& to, uint32_t& error) {
  if (CopyFileExW(LongPath(from).c_str(), LongPath(to).c_str(), nullptr, nullptr, nullptr, 0) != 0) return true;
  error = GetLastError();
  return false;
}

bool flush_file(const std::wstring& path, uint32_t& error) {
  return with_retries([&](uint32_t& attempt_error) { return flush_file_once(path, attempt_error); }, error, nullptr);
}

void clear_read_only(const std::wstring& path) {
  const DWORD attributes = attributes_of(path);
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_READONLY) == 0) return;
  SetFileAttributesW(LongPath(path).c_str(), attributes & ~DWORD{FILE_ATTRIBUTE_READONLY});
}

uint64_t free_space(const std::wstring& folder) {
  const std::wstring root = folder.ends_with(L'\\') ? folder : folder + L'\\';
  uint64_t bytes = 0;
  if (query_free_space(long_path(root), bytes) || query_free_space(root, bytes)) return bytes;
  return 0;
}

}  // namespace kvx
