#include "tools/kvxpublish/platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <utility>

#include "foundations/unique_handle.h"

namespace kvx::publish {
namespace {

struct DescriptorTraits {
  using value_type = int;
  static value_type none() { return -1; }
  static void close(value_type value) { ::close(value); }
};
using Descriptor = UniqueHandle<DescriptorTraits>;

constexpr mode_t usual_mode = 0666;  // without what the user's umask takes away
constexpr mode_t secret_mode = 0600;

std::string error_reason(int error) { return std::generic_category().message(error); }

bool failed(int error, std::string& reason) {
  reason = error_reason(error);
  return false;
}

Descriptor open_file(const fs::path& path, int flags, mode_t mode = 0) {
  return Descriptor(::open(path.c_str(), flags | O_CLOEXEC, mode));
}

FileKind kind_of(const struct stat& found) {
  switch (found.st_mode & S_IFMT) {
    case S_IFREG: return FileKind::file;
    case S_IFDIR: return FileKind::folder;
    case S_IFLNK: return FileKind::link;
    default: return FileKind::other;
  }
}

FileStamp stamp_of(const struct stat& found) {
  constexpr uint64_t units_per_second = 10'000'000;
  constexpr uint64_t seconds_from_1601_to_1970 = 11'644'473'600;
  constexpr int64_t nanoseconds_per_unit = 100;
  return {static_cast<uint64_t>(found.st_size),
          (static_cast<uint64_t>(found.st_mtim.tv_sec) + seconds_from_1601_to_1970) * units_per_second +
              static_cast<uint64_t>(found.st_mtim.tv_nsec / nanoseconds_per_unit)};
}

bool write_all(int file, const void* bytes, size_t count, std::string& reason) {
  const auto* next = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = ::write(file, next, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return failed(written < 0 ? errno : ENOSPC, reason);
    next += written;
    count -= static_cast<size_t>(written);
  }
  return true;
}

bool flush(int file, std::string& reason) { return ::fsync(file) == 0 || failed(errno, reason); }

// So that a name that was just given survives a power loss. What cannot be opened for it is left to the system.
void flush_folder_of(const fs::path& path) {
  const Descriptor folder = open_file(path.parent_path(), O_RDONLY | O_DIRECTORY);
  if (folder) static_cast<void>(::fsync(folder.get()));
}

}  // namespace

bool is_file(const fs::path& path) {
  struct stat found {};
  return ::stat(path.c_str(), &found) == 0 && !S_ISDIR(found.st_mode);
}

bool is_folder(const fs::path& path) {
  struct stat found {};
  return ::stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

bool file_stamp(const fs::path& path, FileStamp& stamp, FileKind& kind, std::string& reason) {
  struct stat found {};
  if (::stat(path.c_str(), &found) != 0) {
    kind = errno == ENOENT || errno == ENOTDIR ? FileKind::missing : FileKind::other;
    return failed(errno, reason);
  }
  kind = kind_of(found);
  if (kind == FileKind::folder) return failed(EISDIR, reason);
  stamp = stamp_of(found);
  return true;
}

bool file_stamp(const fs::path& path, FileStamp& stamp) {
  FileKind kind{};
  std::string reason;
  return file_stamp(path, stamp, kind, reason);
}

bool list_folder(const fs::path& folder, std::vector<FolderEntry>& entries, std::string& reason) {
  entries.clear();
  const std::unique_ptr<DIR, int (*)(DIR*)> search(::opendir(folder.c_str()), ::closedir);
  const int descriptor = search ? ::dirfd(search.get()) : -1;
  if (descriptor < 0) return errno == ENOENT || failed(errno, reason);
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(search.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    struct stat found {};
    if (name == "." || name == "..") continue;
    if (::fstatat(descriptor, entry->d_name, &found, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;  // deleted just now
      return failed(errno, reason);
    }
    entries.push_back({fs::path(name), kind_of(found), stamp_of(found)});
  }
  if (errno != 0) return failed(errno, reason);
  std::ranges::sort(entries, {}, &FolderEntry::name);
  return true;
}

bool read_file(const fs::path& path, uint64_t limit, std::string& bytes) {
  bytes.clear();
  const Descriptor file = open_file(path, O_RDONLY);
  struct stat found {};
  if (!file || ::fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) return false;
  if (std::cmp_greater(found.st_size, limit)) return false;
  bytes.resize(static_cast<size_t>(found.st_size));
  for (size_t position = 0; position < bytes.size();) {
    const ssize_t got = ::read(file.get(), bytes.data() + position, bytes.size() - position);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      bytes.clear();
      return false;
    }
    position += static_cast<size_t>(got);
  }
  return true;
}

bool write_file_atomic(const fs::path& path, std::string_view bytes, std::string& reason) {
  fs::path sibling = path;
  sibling += ".tmp";
  const Descriptor file = open_file(sibling, O_WRONLY | O_CREAT | O_TRUNC, usual_mode);
  if (!file) return failed(errno, reason);
  if (write_all(file.get(), bytes.data(), bytes.size(), reason) && flush(file.get(), reason) &&
      move_file(sibling, path, reason)) {
    flush_folder_of(path);
    return true;
  }
  discard_file(sibling);
  return false;
}

bool write_new_file(const fs::path& path, std::string_view bytes, NewFileRights rights, bool& exists,
                    std::string& reason) {
  const Descriptor file =
      open_file(path, O_WRONLY | O_CREAT | O_EXCL, rights == NewFileRights::owner_only ? secret_mode : usual_mode);
  exists = !file && errno == EEXIST;
  if (!file) return failed(errno, reason);
  if (write_all(file.get(), bytes.data(), bytes.size(), reason) && flush(file.get(), reason)) {
    flush_folder_of(path);
    return true;
  }
  discard_file(path);
  return false;
}

bool move_file(const fs::path& from, const fs::path& to, std::string& reason) {
  return ::rename(from.c_str(), to.c_str()) == 0 || failed(errno, reason);
}

bool delete_file(const fs::path& path, std::string& reason) {
  return ::unlink(path.c_str()) == 0 || errno == ENOENT || failed(errno, reason);
}

bool flush_file_system(const fs::path& folder, std::string& reason) {
  const Descriptor opened = open_file(folder, O_RDONLY | O_DIRECTORY);
  return (opened && ::syncfs(opened.get()) == 0) || failed(errno, reason);
}

void discard_file(const fs::path& path) { static_cast<void>(::unlink(path.c_str())); }

void discard_empty_folder(const fs::path& path) { static_cast<void>(::rmdir(path.c_str())); }

bool make_folder(const fs::path& path, bool& exists, std::string& reason) {
  constexpr mode_t folder_mode = 0777;
  exists = false;
  if (::mkdir(path.c_str(), folder_mode) == 0) return true;
  exists = errno == EEXIST;
  return failed(errno, reason);
}

struct InputFile::Handle {
  Descriptor file;
};

InputFile::InputFile() : handle_(std::make_unique<Handle>()) {}
InputFile::~InputFile() = default;

bool InputFile::open(const fs::path& path, FileKind& kind, std::string& reason) {
  Descriptor file = open_file(path, O_RDONLY);
  if (!file) {
    const int error = errno;
    kind = error == ENOENT || error == ENOTDIR ? FileKind::missing : FileKind::other;
    return failed(error, reason);
  }
  struct stat found {};
  kind = FileKind::other;
  if (::fstat(file.get(), &found) != 0) return failed(errno, reason);
  kind = kind_of(found);
  if (kind == FileKind::folder) return failed(EISDIR, reason);
  static_cast<void>(::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL));
  handle_->file = std::move(file);
  return true;
}

bool InputFile::size(uint64_t& bytes, std::string& reason) const {
  struct stat found {};
  if (::fstat(handle_->file.get(), &found) != 0) return failed(errno, reason);
  bytes = static_cast<uint64_t>(found.st_size);
  return true;
}

bool InputFile::read(uint8_t* bytes, size_t room, size_t& got, std::string& reason) {
  for (;;) {
    const ssize_t count = ::read(handle_->file.get(), bytes, room);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failed(errno, reason);
    got = static_cast<size_t>(count);
    return true;
  }
}

bool InputFile::rewind(std::string& reason) {
  return ::lseek(handle_->file.get(), 0, SEEK_SET) == 0 || failed(errno, reason);
}

void InputFile::close() { handle_->file.reset(); }

struct OutputFile::Handle {
  Descriptor file;
};

OutputFile::OutputFile() : handle_(std::make_unique<Handle>()) {}
OutputFile::~OutputFile() = default;

bool OutputFile::create(const fs::path& path, std::string& reason) {
  handle_->file = open_file(path, O_WRONLY | O_CREAT | O_EXCL, usual_mode);
  return handle_->file || failed(errno, reason);
}

bool OutputFile::write(const uint8_t* bytes, size_t count, std::string& reason) {
  return write_all(handle_->file.get(), bytes, count, reason);
}

void OutputFile::close() { handle_->file.reset(); }

struct LockFile::Handle {
  Descriptor file;
  fs::path path;
};

LockFile::LockFile() : handle_(std::make_unique<Handle>()) {}

LockFile::~LockFile() {
  if (handle_->file) discard_file(handle_->path);
}

bool LockFile::acquire(const fs::path& path, bool& is_held, std::string& reason) {
  is_held = false;
  for (;;) {
    Descriptor file = open_file(path, O_RDWR | O_CREAT, usual_mode);
    if (!file && errno == EACCES) file = open_file(path, O_RDONLY);  // another user's, which can be locked all the same
    if (!file) return failed(errno, reason);
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      is_held = errno == EWOULDBLOCK;
      return failed(errno, reason);
    }
    // The one before may have deleted the file after it was opened here: then its name is free for the next.
    struct stat held {};
    struct stat named {};
    if (::fstat(file.get(), &held) != 0) return failed(errno, reason);
    const bool is_named = ::stat(path.c_str(), &named) == 0;
    if (!is_named && errno != ENOENT) return failed(errno, reason);
    if (!is_named || held.st_ino != named.st_ino || held.st_dev != named.st_dev) continue;
    handle_->file = std::move(file);
    handle_->path = path;
    return true;
  }
}

}  // namespace kvx::publish
