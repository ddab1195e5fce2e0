// Files and folders as the commands need them, of any path length that the system takes and with any name. Nothing
// throws for a file-system error: an operation returns false, and `reason` is then the system's own words for it.
//
// Any thread may call, but no two may work on the same path at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::publish {

namespace fs = std::filesystem;

enum class FileKind : uint8_t {
  missing,
  file,
  folder,
  link,   // in a listing: a symbolic link, or a reparse point of Windows. All else follows links
  other,  // a device, a pipe
};

struct FileStamp {
  uint64_t size = 0;             // bytes
  uint64_t last_write_time = 0;  // 100 ns units since 1601
};

// These two follow links.
[[nodiscard]] bool is_file(const fs::path& path);
[[nodiscard]] bool is_folder(const fs::path& path);

// False for a folder and for a file that is not there; `kind` then tells which.
[[nodiscard]] bool file_stamp(const fs::path& path, FileStamp& stamp, FileKind& kind, std::string& reason);
[[nodiscard]] bool file_stamp(const fs::path& path, FileStamp& stamp);

struct FolderEntry {
  fs::path name;
  FileKind kind = FileKind::missing;
  FileStamp stamp;  // as the folder tells it, which may lag behind the file
};

// Ordered by name, without "." and "..". A folder that is not there has no entries.
[[nodiscard]] bool list_folder(const fs::path& folder, std::vector<FolderEntry>& entries, std::string& reason);

// The whole file. False also for one of more than `limit` bytes.
[[nodiscard]] bool read_file(const fs::path& path, uint64_t limit, std::string& bytes);

// Writes a sibling with ".tmp" after its name, puts it on the disk and moves it into place, so that `path` never holds
// half of its content. On failure the old file is as it was.
[[nodiscard]] bool write_file_atomic(const fs::path& path, std::string_view bytes, std::string& reason);

enum class NewFileRights : uint8_t {
  usual,
  owner_only,  // for the user who runs this program and for nobody else, whatever the folder grants
};

// Writes a file that must not be there yet, `exists` otherwise, and puts it on the disk. One that cannot be finished is
// deleted.
[[nodiscard]] bool write_new_file(const fs::path& path, std::string_view bytes, NewFileRights rights, bool& exists,
                                  std::string& reason);

// Takes the place of a file that is there.
[[nodiscard]] bool move_file(const fs::path& from, const fs::path& to, std::string& reason);

// A file that is already gone counts as deleted.
[[nodiscard]] bool delete_file(const fs::path& path, std::string& reason);

// Puts all that was written below the folder's file system on the disk, with its names, and tells of what failed there
// after it was written. On Windows, where only an administrator may do that, nothing happens.
[[nodiscard]] bool flush_file_system(const fs::path& folder, std::string& reason);

// For what is of no use any more: one try, and nobody needs to know.
void discard_file(const fs::path& path);
void discard_empty_folder(const fs::path& path);

// Makes one folder; false when something has its name, and `exists` is then set.
[[nodiscard]] bool make_folder(const fs::path& path, bool& exists, std::string& reason);

// A file that is read from its beginning to its end. While it is open on Windows nobody can write to it.
class InputFile {
 public:
  InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  // `kind` is `missing` when there is certainly no such file, and `folder` when it is one.
  [[nodiscard]] bool open(const fs::path& path, FileKind& kind, std::string& reason);

  [[nodiscard]] bool size(uint64_t& bytes, std::string& reason) const;

  // At most `room` bytes; none at the end of the file.
  [[nodiscard]] bool read(uint8_t* bytes, size_t room, size_t& got, std::string& reason);

  [[nodiscard]] bool rewind(std::string& reason);

  void close();

 private:
  struct Handle;
  std::unique_ptr<Handle> handle_;
};

// A new file, written from its beginning to its end.
class OutputFile {
 public:
  OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();  // closes it; what was written stays

  // Fails where there is a file of this name.
  [[nodiscard]] bool create(const fs::path& path, std::string& reason);

  [[nodiscard]] bool write(const uint8_t* bytes, size_t count, std::string& reason);

  void close();

 private:
  struct Handle;
  std::unique_ptr<Handle> handle_;
};

// Held from the file's name by one process of this machine at a time; the file goes when it is let go.
class LockFile {
 public:
  LockFile();
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;
  ~LockFile();

  // One try. `is_held` is set when another process has it.
  [[nodiscard]] bool acquire(const fs::path& path, bool& is_held, std::string& reason);

 private:
  struct Handle;
  std::unique_ptr<Handle> handle_;
};

}  // namespace kvx::publish
