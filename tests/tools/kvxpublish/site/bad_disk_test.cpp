// The tool on a disk that fills, or gives a file no more. The disk takes the place of the system's calls in this
// program, so it is a program of its own.
#include <windows.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/error_text.h"
#include "foundations/text.h"
#include "tests/support/sha256_hex.h"
#include "tests/tools/kvxpublish/support/folder_tree.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

struct Disk {
  std::wstring full_for;            // the part of a path whose files find no room
  std::wstring unreadable;          // the ending of the path of a file that is there and cannot be read
  std::vector<std::wstring> moved;  // the targets of all moves, in their order
  std::mutex mutex;
};

Disk disk;

template <typename Call>
Call* system_call(const char* name) {
  return reinterpret_cast<Call*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name)));
}

bool has_no_room(HANDLE file) {
  if (disk.full_for.empty()) return false;
  wchar_t path[MAX_PATH + 1] = {};
  GetFinalPathNameByHandleW(file, path, MAX_PATH, 0);
  return std::wstring_view(path).find(disk.full_for) != std::wstring_view::npos;
}

bool is_unreadable(const wchar_t* path) {
  return !disk.unreadable.empty() && std::wstring_view(path).ends_with(disk.unreadable);
}

// A part of the bytes goes onto the disk without an error; from then on it is full.
BOOL WINAPI write_to_disk(HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written, LPOVERLAPPED overlapped) {
  static const auto system_write_file = system_call<decltype(WriteFile)>("WriteFile");
  if (!has_no_room(file)) return system_write_file(file, bytes, count, written, overlapped);
  LARGE_INTEGER position{};
  SetFilePointerEx(file, {}, &position, FILE_CURRENT);
  if (position.QuadPart == 0 && count > 1) {
    system_write_file(file, bytes, count / 2, written, overlapped);
    SetLastError(ERROR_SUCCESS);
    return TRUE;
  }
  *written = 0;
  SetLastError(ERROR_DISK_FULL);
  return FALSE;
}

BOOL WINAPI move_on_disk(LPCWSTR from, LPCWSTR to, DWORD flags) {
  static const auto system_move_file = system_call<decltype(MoveFileExW)>("MoveFileExW");
  const std::scoped_lock lock(disk.mutex);
  disk.moved.emplace_back(to);
  return system_move_file(from, to, flags);
}

HANDLE WINAPI open_on_disk(LPCWSTR path, DWORD access, DWORD share_mode, LPSECURITY_ATTRIBUTES attributes,
                           DWORD disposition, DWORD flags, HANDLE model) {
  static const auto system_create_file = system_call<decltype(CreateFileW)>("CreateFileW");
  if (!is_unreadable(path)) {
    return system_create_file(path, access, share_mode, attributes, disposition, flags, model);
  }
  SetLastError(ERROR_CRC);
  return INVALID_HANDLE_VALUE;
}

BOOL WINAPI look_at_disk(LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID data) {
  static const auto system_attributes = system_call<decltype(GetFileAttributesExW)>("GetFileAttributesExW");
  if (!is_unreadable(path)) return system_attributes(path, level, data);
  SetLastError(ERROR_CRC);
  return FALSE;
}

}  // namespace
}  // namespace kvx::test

// What calls of these functions go through.
extern "C" {
extern decltype(&WriteFile) __imp_WriteFile;
extern decltype(&MoveFileExW) __imp_MoveFileExW;
extern decltype(&CreateFileW) __imp_CreateFileW;
extern decltype(&GetFileAttributesExW) __imp_GetFileAttributesExW;
decltype(&WriteFile) __imp_WriteFile = &kvx::test::write_to_disk;
decltype(&MoveFileExW) __imp_MoveFileExW = &kvx::test::move_on_disk;
decltype(&CreateFileW) __imp_CreateFileW = &kvx::test::open_on_disk;
decltype(&GetFileAttributesExW) __imp_GetFileAttributesExW = &kvx::test::look_at_disk;
}

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class BadDisk : public testing::Test {
 protected:
  ~BadDisk() override {
    disk.full_for.clear();
    disk.unreadable.clear();
  }

  PublishSite site_;
  std::string folder_ = site_.site_folder();
  const std::string full_ = error_text(ERROR_DISK_FULL);
};

// The message with the names of temporary files and folders, which nobody knows before, made equal.
std::string without_numbers(std::string text) {
  std::erase_if(text, [](char c) { return c >= '0' && c <= '9'; });
  return text;
}

TEST_F(BadDisk, PackNamesWhatFoundNoRoomAndLeavesNothing) {
  for (const bool large : {false, true}) {
    SCOPED_TRACE(large);
    if (large) write_text(site_.game(L"bin\\game.exe"), std::string(5000000, 'x'));
    disk.full_for = L"content-";
    const CommandResult result = site_.pack();
    disk.full_for.clear();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_TRUE(result.messages.starts_with("kvxpublish: " + folder_ + "\\content-")) << result.messages;
    EXPECT_TRUE(result.messages.ends_with(": cannot be written: " + full_ + "\n")) << result.messages;
    EXPECT_FALSE(exists(site_.site(L"")));
  }
}

TEST_F(BadDisk, PublishNamesWhatFoundNoRoomAndLeavesNothing) {
  write_text(site_.game(L"data\\a pack.bin"), "the game");  // one piece of content alone
  ASSERT_EQ(site_.pack().code, 0);
  disk.full_for = L"content-";
  const std::string web = to_utf8(site_.path(L"web"));
  const CommandResult result = kvxpublish({"publish", folder_, "--to", web});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.data, IsEmpty());
  EXPECT_EQ(without_numbers(result.messages),
            without_numbers("kvxpublish: " + web + "\\content--.tmp\\" + sha256_hex("the game") +
                            ": cannot be written: " + full_ + "\n"));
  EXPECT_FALSE(exists(to_wide(web)));
}

// The little that is written last finds no room either.
TEST_F(BadDisk, ARoomThatLacksForTheManifestIsNamedAndEverythingPutBack) {
  ASSERT_EQ(site_.pack().code, 0);
  write_text(site_.game(L"data\\new.bin"), "new content");
  for (const std::wstring& file : std::vector<std::wstring>{L"manifest.json", L"manifest.sig", L"history\\live\\2.sig",
                                                            L"history\\live\\2.json"}) {
    SCOPED_TRACE(to_utf8(file));
    const FolderTree before = folder_tree(to_wide(folder_));
    disk.full_for = L"site\\" + file;
    const CommandResult result = site_.pack({"--version=2", "--serial=2"});
    disk.full_for.clear();
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.messages, "kvxpublish: " + to_utf8(site_.site(file)) + ": cannot be written: " + full_ + "\n");
    EXPECT_EQ(folder_tree(to_wide(folder_)), before);
  }
}

TEST_F(BadDisk, ADigestThatFindsNoRoomLeavesNothing) {
  ASSERT_EQ(site_.pack({"--key="}).code, 0);
  const std::wstring out = site_.path(L"manifest.digest");
  disk.full_for = L"manifest.digest";
  const CommandResult result = kvxpublish({"digest", folder_, "--out", to_utf8(out)});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: " + to_utf8(out) + ": cannot be written: " + full_ + "\n");
  EXPECT_FALSE(exists(out));
}

TEST_F(BadDisk, KeygenLeavesNothingItMade) {
  for (const std::wstring file : {L"private_key.pem", L"public_key.pem"}) {
    for (const bool made_before : {false, true}) {
      const std::wstring keys = site_.path(std::wstring(L"keys\\") + (made_before ? L"old" : L"new"));
      if (made_before) {
        write_text(keys + L"\\mine", "");
        remove_file(keys + L"\\mine");
      }
      disk.full_for = file;
      const std::string out = to_utf8(keys);
      const CommandResult result = kvxpublish({"keygen", "--out", out});
      EXPECT_EQ(result.code, 1);
      EXPECT_EQ(result.messages, "kvxpublish: " + out + '\\' + to_utf8(file) + ": cannot be written: " + full_ + "\n");
      EXPECT_EQ(exists(keys), made_before);
      EXPECT_THAT(folder_tree(keys), IsEmpty());
      disk.full_for.clear();
      EXPECT_EQ(kvxpublish({"keygen", "--out", out}).code, 0);
    }
    remove_tree(site_.path(L"keys"));
  }
}

// Whoever takes a release that cannot be read for none publishes over it.
TEST_F(BadDisk, AFileThatCannotBeReadIsNotTakenForMissing) {
  ASSERT_EQ(site_.pack().code, 0);
  ASSERT_EQ(site_.pack({"--channel=test", "--version=2"}).code, 0);
  const std::string key = "--key=" + development_key("primary");
  const std::wstring content = L"files\\" + to_wide(sha256_hex("the game"));
  struct Case {
    std::wstring unreadable;
    std::vector<std::string> command;
  };
  for (const Case& c : std::vector<Case>{
           {L"site\\manifest.json", {"promote", "--from=test", "--to=live", "--to-dir", folder_, key}},
           {L"site\\manifest.sig", {"promote", "--from=test", "--to=live", "--to-dir", folder_, key}},
           {L"test\\manifest.json", {"verify", folder_, "--channel=test"}},
           {L"site\\manifest.json", {"prune", folder_, "--keep=1"}},
           {content, {"verify", folder_}},
           {content, {"verify", folder_, "--full"}},
       }) {
    SCOPED_TRACE(c.command[0] + ' ' + to_utf8(c.unreadable));
    const FolderTree before = folder_tree(to_wide(folder_));
    disk.unreadable = c.unreadable;
    const CommandResult result = kvxpublish(c.command);
    disk.unreadable.clear();
    const std::wstring name = c.unreadable.starts_with(L"site\\") ? c.unreadable.substr(5) : c.unreadable;
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.messages,
              "kvxpublish: " + to_utf8(site_.site(name)) + ": cannot be read: " + error_text(ERROR_CRC) + "\n");
    EXPECT_EQ(folder_tree(to_wide(folder_)), before);
  }
}

TEST_F(BadDisk, PublishDoesNotTakeALiveReleaseThatCannotBeReadForNone) {
  ASSERT_EQ(site_.pack().code, 0);
  const std::string web = to_utf8(site_.path(L"web"));
  ASSERT_EQ(kvxpublish({"publish", folder_, "--to", web}).code, 0);
  ASSERT_EQ(site_.pack({"--version=2", "--serial=2"}).code, 0);
  const FolderTree before = folder_tree(to_wide(web));
  disk.unreadable = L"web\\manifest.json";
  const CommandResult result = kvxpublish({"publish", folder_, "--to", web});
  disk.unreadable.clear();
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: " + web + "\\manifest.json: cannot be read: " + error_text(ERROR_CRC) +
                                 "; publish all the same with --force\n");
  EXPECT_EQ(folder_tree(to_wide(web)), before);
}

// A program may be ended between any two of them. A release of the history is always whole, and so is what is live
// but for the moment between the last two.
TEST_F(BadDisk, TheHistoryComesFirstAndEachSignatureWhereItsLackDoesNoHarm) {
  disk.moved.clear();
  ASSERT_EQ(site_.pack().code, 0);
  ASSERT_GE(disk.moved.size(), 4U);
  std::vector<std::string> last;
  for (size_t i = disk.moved.size() - 4; i < disk.moved.size(); ++i) {
    const std::string path = to_utf8(disk.moved[i]);
    last.push_back(path.substr(path.find("\\site\\") + 6));
  }
  EXPECT_THAT(last, ElementsAre("history\\live\\1.sig", "history\\live\\1.json", "manifest.json", "manifest.sig"));
}

}  // namespace
}  // namespace kvx::test
