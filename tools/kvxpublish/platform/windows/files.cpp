#include "tools/kvxpublish/platform/files.h"

#include <windows.h>

#include <algorithm>
#include <array>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/write_all.h"

namespace kvx::publish {
namespace {

bool failed(uint32_t error, std::string& reason) {
  reason = error_text(error);
  return false;
}

bool is_missing(uint32_t error) { return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND; }

FileKind kind_of(DWORD attributes) {
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return FileKind::link;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileKind::folder : FileKind::file;
}

uint64_t join_words(DWORD high, DWORD low) { return uint64_t{high} << 32 | low; }

FolderEntry entry_of(const WIN32_FIND_DATAW& data) {
  return {fs::path(data.cFileName), kind_of(data.dwFileAttributes),
          FileStamp{join_words(data.nFileSizeHigh, data.nFileSizeLow),
                    join_words(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)}};
}

// Rights on a file for the user who runs this program and for nobody else, whatever its folder grants.
class OwnerOnly {
 public:
  // False when the system does not tell who that is.
  [[nodiscard]] bool prepare() {
    HANDLE opened = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened) == 0) return false;
    const KernelHandle token(opened);
    DWORD size = 0;
    return GetTokenInformation(token.get(), TokenUser, &user_, sizeof(user_), &size) != 0 &&
           InitializeAcl(&list_.acl, sizeof(list_), ACL_REVISION) != 0 &&
           AddAccessAllowedAce(&list_.acl, ACL_REVISION, FILE_ALL_ACCESS, user_.token_user.User.Sid) != 0 &&
           InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) != 0 &&
           SetSecurityDescriptorDacl(&descriptor_, TRUE, &list_.acl, FALSE) != 0 &&
           SetSecurityDescriptorControl(&descriptor_, SE_DACL_PROTECTED, SE_DACL_PROTECTED) != 0;
  }

  [[nodiscard]] SECURITY_ATTRIBUTES* attributes() { return &attributes_; }

 private:
  struct {
    TOKEN_USER token_user;
    std::array<uint8_t, SECURITY_MAX_SID_SIZE> sid;
  } user_{};
  struct {
    ACL acl;
    std::array<uint8_t, sizeof(ACCESS_ALLOWED_ACE) + SECURITY_MAX_SID_SIZE> entry;
  } list_{};
  SECURITY_DESCRIPTOR descriptor_{};
  SECURITY_ATTRIBUTES attributes_{sizeof(SECURITY_ATTRIBUTES), &descriptor_, FALSE};
};

}  // namespace

bool is_file(const fs::path& path) { return kvx::is_file(path.native()); }

bool is_folder(const fs::path& path) { return kvx::is_folder(path.native()); }

bool file_stamp(const fs::path& path, FileStamp& stamp, FileKind& kind, std::string& reason) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (GetFileAttributesExW(long_path(path.native()).c_str(), GetFileExInfoStandard, &data) == 0) {
    const uint32_t error = GetLastError();
    kind = is_missing(error) ? FileKind::missing : FileKind::other;
    return failed(error, reason);
  }
  kind = kind_of(data.dwFileAttributes);
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    kind = FileKind::folder;
    return failed(ERROR_ACCESS_DENIED, reason);
  }
  stamp = {join_words(data.nFileSizeHigh, data.nFileSizeLow),
           join_words(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
  return true;
}

bool file_stamp(const fs::path& path, FileStamp& stamp) {
  FileKind kind{};
  std::string reason;
  return file_stamp(path, stamp, kind, reason);
}

bool list_folder(const fs::path& folder, std::vector<FolderEntry>& entries, std::string& reason) {
  entries.clear();
  WIN32_FIND_DATAW data;
  const FindHandle search(FindFirstFileExW(long_path(join_path(folder.native(), L"*")).c_str(), FindExInfoBasic, &data,
                                           FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
  if (!search) {
    const uint32_t error = GetLastError();
    return is_missing(error) || failed(error, reason);
  }
  do {
    const std::wstring_view name = data.cFileName;
    if (name != L"." && name != L"..") entries.push_back(entry_of(data));
  } while (FindNextFileW(search.get(), &data) != 0);
  const uint32_t error = GetLastError();
  std::ranges::sort(entries, {}, &FolderEntry::name);
  return error == ERROR_NO_MORE_FILES || failed(error, reason);
}

bool read_file(const fs::path& path, uint64_t limit, std::string& bytes) {
  return kvx::read_file(path.native(), limit, bytes);
}

bool write_file_atomic(const fs::path& path, std::string_view bytes, std::string& reason) {
  uint32_t error = 0;
  return kvx::write_file_atomic(path.native(), std::string(bytes), error) || failed(error, reason);
}

bool write_new_file(const fs::path& path, std::string_view bytes, NewFileRights rights, bool& exists,
                    std::string& reason) {
  exists = false;
  OwnerOnly owner_only;
  if (rights == NewFileRights::owner_only && !owner_only.prepare()) return failed(GetLastError(), reason);
  SECURITY_ATTRIBUTES* const attributes = rights == NewFileRights::owner_only ? owner_only.attributes() : nullptr;
  FileHandle file(CreateFileW(long_path(path.native()).c_str(), GENERIC_WRITE, 0, attributes, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  uint32_t error = file ? 0 : GetLastError();
  exists = error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS;
  if (!file) return failed(error, reason);
  if (write_all(file.get(), bytes.data(), bytes.size(), error) && flush_to_disk(file.get(), error)) return true;
  file.reset();
  discard_file(path);
  return failed(error, reason);
}

bool move_file(const fs::path& from, const fs::path& to, std::string& reason) {
  uint32_t error = 0;
  return kvx::move_file(from.native(), to.native(), error) || failed(error, reason);
}

bool delete_file(const fs::path& path, std::string& reason) {
  uint32_t error = 0;
  return kvx::delete_file(path.native(), error) || failed(error, reason);
}

bool flush_file_system(const fs::path& /*folder*/, std::string& /*reason*/) { return true; }

void discard_file(const fs::path& path) {
  uint32_t ignored = 0;
  static_cast<void>(delete_file_once(path.native(), ignored));
}

void discard_empty_folder(const fs::path& path) { RemoveDirectoryW(long_path(path.native()).c_str()); }

bool make_folder(const fs::path& path, bool& exists, std::string& reason) {
  exists = false;
  if (CreateDirectoryW(long_path(path.native()).c_str(), nullptr) != 0) return true;
  const uint32_t error = GetLastError();
  exists = error == ERROR_ALREADY_EXISTS;
  return failed(error, reason);
}

struct InputFile::Handle {
  FileHandle file;
};

InputFile::InputFile() : handle_(std::make_unique<Handle>()) {}
InputFile::~InputFile() = default;

bool InputFile::open(const fs::path& path, FileKind& kind, std::string& reason) {
  handle_->file.reset(CreateFileW(long_path(path.native()).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  kind = FileKind::file;
  if (handle_->file) return true;
  const uint32_t error = GetLastError();
  kind = is_folder(path) ? FileKind::folder : FileKind::other;
  if (is_missing(error)) kind = FileKind::missing;
  return failed(error, reason);
}

bool InputFile::size(uint64_t& bytes, std::string& reason) const {
  LARGE_INTEGER size;
  if (GetFileSizeEx(handle_->file.get(), &size) == 0) return failed(GetLastError(), reason);
  bytes = static_cast<uint64_t>(size.QuadPart);
  return true;
}

bool InputFile::read(uint8_t* bytes, size_t room, size_t& got, std::string& reason) {
  constexpr size_t largest_piece = size_t{1} << 30;
  DWORD count = 0;
  if (ReadFile(handle_->file.get(), bytes, static_cast<DWORD>(std::min(room, largest_piece)), &count, nullptr) == 0) {
    return failed(GetLastError(), reason);
  }
  got = count;
  return true;
}

bool InputFile::rewind(std::string& reason) {
  return SetFilePointerEx(handle_->file.get(), {}, nullptr, FILE_BEGIN) != 0 || failed(GetLastError(), reason);
}

void InputFile::close() { handle_->file.reset(); }

struct OutputFile::Handle {
  FileHandle file;
};

OutputFile::OutputFile() : handle_(std::make_unique<Handle>()) {}
OutputFile::~OutputFile() = default;

bool OutputFile::create(const fs::path& path, std::string& reason) {
  handle_->file.reset(CreateFileW(long_path(path.native()).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
  return handle_->file || failed(GetLastError(), reason);
}

bool OutputFile::write(const uint8_t* bytes, size_t count, std::string& reason) {
  uint32_t error = 0;
  return write_all(handle_->file.get(), bytes, count, error) || failed(error, reason);
}

void OutputFile::close() { handle_->file.reset(); }

struct LockFile::Handle {
  FileHandle file;
};

LockFile::LockFile() : handle_(std::make_unique<Handle>()) {}
LockFile::~LockFile() = default;

bool LockFile::acquire(const fs::path& path, bool& is_held, std::string& reason) {
  is_held = false;
  handle_->file.reset(CreateFileW(long_path(path.native()).c_str(), GENERIC_WRITE | DELETE, 0, nullptr, OPEN_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  if (handle_->file) return true;
  const uint32_t error = GetLastError();
  is_held = error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
  return failed(error, reason);
}

}  // namespace kvx::publish
