#include "manifest/managed_path.h"

#include <gtest/gtest.h>

#include "foundations/text.h"

namespace kvx {
namespace {

using std::string_literals::operator""s;  // NOLINT(misc-unused-using-decls): clang-tidy does not see its use

constexpr std::wstring_view own_name = L"MyLauncher.exe";

std::string refusal_of(std::string_view path) {
  std::string error;
  return is_managed_path(path, own_name, error) ? "accepted" : error;
}

// 400 bytes in components that are all fine.
std::string path_of(size_t bytes) {
  std::string path;
  while (path.size() < bytes) path += path.size() % 50 == 25 ? '/' : 'x';
  return path;
}

TEST(ManagedPath, AcceptsOrdinaryNames) {
  for (const std::string& path : {"bin/game.exe"s,
                                  "a"s,
                                  path_of(400),
                                  "\xE5\x90\x8D\xE5\x89\x8D/\xE3\x83\x87.pak"s,
                                  "a b/c d.txt"s,
                                  " a"s,
                                  ".a"s,
                                  "..a"s,
                                  "a..b/...c"s,
                                  "SavedGames/x"s,
                                  "mySaved/x"s,
                                  "data/.kvx_patch"s,
                                  "data/.kvx_patch/x"s,
                                  ".kvx_patch2/x"s,
                                  "con1"s,
                                  "com10"s,
                                  "console"s,
                                  "com"s,
                                  "lpt"s,
                                  "coma"s,
                                  "xcon"s,
                                  "a.con"s,
                                  "conin"s,
                                  "clock"s,
                                  "com\xC2\xB9"s,
                                  "kvxlauncher.exe/x"s,
                                  "MyLauncher.exe/x"s,
                                  "KVXLauncher.exe.bak"s,
                                  "KVXLauncher.pdb"s,
                                  "a'b/!#%&()+,-;=@[]^_`{}~"s,
                                  "\x7F"s,
                                  "\xFF"s}) {
    EXPECT_EQ(refusal_of(path), "accepted") << path;
  }
}

TEST(ManagedPath, RefusesWhatMustNotBeTouched) {
  struct Case {
    std::string path;
    const char* reason;
  };
  for (const Case& c : {
           Case{"", "empty or too long"},
           {path_of(401), "empty or too long"},
           {std::string(401, '\\'), "empty or too long"},
           {"a\\b", "backslash in path"},
           {"/\\", "backslash in path"},
           {"../..\\x", "backslash in path"},
           {"C:\\x", "backslash in path"},
           {"/", "leading or trailing '/'"},
           {"/a", "leading or trailing '/'"},
           {"a/", "leading or trailing '/'"},
           {"//server/share", "leading or trailing '/'"},
           {"a//b", "empty path component"},
           {"a/b///c", "empty path component"},
           {".", "'.' or '..' component"},
           {"..", "'.' or '..' component"},
           {"a/./b", "'.' or '..' component"},
           {"../x", "'.' or '..' component"},
           {"a/..", "'.' or '..' component"},
           {"a/../../x", "'.' or '..' component"},
           {"a/b:c", "invalid character"},
           {"C:/x", "invalid character"},
           {"a*", "invalid character"},
           {"a?", "invalid character"},
           {"a\"b", "invalid character"},
           {"<a", "invalid character"},
           {"a>/b", "invalid character"},
           {"a|b", "invalid character"},
           {"a\0b"s, "invalid character"},
           {"a\x01"s, "invalid character"},
           {"a\x1F/b"s, "invalid character"},
           {"a\n", "invalid character"},
           {"con:", "invalid character"},
           {"...", "component ends with a space or dot"},
           {"file.", "component ends with a space or dot"},
           {"dir /x", "component ends with a space or dot"},
           {" ", "component ends with a space or dot"},
           {"Saved /x", "component ends with a space or dot"},
           {"con.", "component ends with a space or dot"},
           {"CON", "reserved device name"},
           {"con.txt", "reserved device name"},
           {"PrN", "reserved device name"},
           {"Aux.tar.gz", "reserved device name"},
           {"a/nul/b", "reserved device name"},
           {"CONIN$", "reserved device name"},
           {"conout$.x", "reserved device name"},
           {"Clock$", "reserved device name"},
           {"com0", "reserved device name"},
           {"COM1.log", "reserved device name"},
           {"com9/x", "reserved device name"},
           {"lpt0", "reserved device name"},
           {"a/LPT9.x", "reserved device name"},
           {"Saved/config.ini", "user data folder 'Saved' is never managed"},
           {"game/saved/x", "user data folder 'Saved' is never managed"},
           {"game/SAVED", "user data folder 'Saved' is never managed"},
           {".KVX_PATCH/x", "launcher state folder"},
           {".kvx_patch", "launcher state folder"},
           {"MyLauncher.exe", "the launcher is not managed as a game file"},
           {"bin/mylauncher.EXE", "the launcher is not managed as a game file"},
           {"KVXLauncher.exe", "the launcher is not managed as a game file"},
           {"tools/kvxlauncher.EXE", "the launcher is not managed as a game file"},
           {"KVXLauncher.new.exe", "the launcher is not managed as a game file"},
           {"x/y/KVXLAUNCHER.OLD.EXE", "the launcher is not managed as a game file"},
           // Components are tested one after the other, each with all its rules.
           {"Saved/a:b", "user data folder 'Saved' is never managed"},
           {"a:b/Saved", "invalid character"},
           {".kvx_patch/..", "launcher state folder"},
       }) {
    EXPECT_EQ(refusal_of(c.path), c.reason) << c.path;
  }
}

TEST(ManagedPath, FollowsTheLaunchersActualName) {
  std::string error;
  EXPECT_TRUE(is_managed_path("MyLauncher.exe", L"Other.exe", error));
  EXPECT_FALSE(is_managed_path("other.exe", L"Other.exe", error));
  EXPECT_FALSE(is_managed_path("SPIEL-\xC3\x84.exe", L"Spiel-\u00E4.exe", error));
  EXPECT_EQ(error, "the launcher is not managed as a game file");
}

TEST(NativePath, HasBackslashesOnly) {
  EXPECT_EQ(native_path("Data/sub/\xC3\xA9.pak"), L"Data\\sub\\\u00E9.pak");
  EXPECT_EQ(native_path("a"), L"a");
  for (const std::string_view path : {"Data/sub/a.pak", "a", "", "/", "Data/sub/\xC3\xA9.pak"}) {
    std::wstring folder = L"C:/as it was\\";
    append_native_path(path, folder);
    EXPECT_EQ(folder, L"C:/as it was\\" + native_path(path)) << path;
  }
}

TEST(PathIdentity, IsTheSameForNamesThatDifferInCaseOnly) {
  EXPECT_EQ(path_identity(native_path("Data/a.pak")), path_identity(native_path("data/A.PAK")));
  EXPECT_EQ(path_identity(native_path("\xC3\xA9")), path_identity(native_path("\xC3\x89")));
  EXPECT_NE(path_identity(native_path("a/b")), path_identity(native_path("a/c")));
  EXPECT_EQ(path_identity(L"bin\\a"), L"BIN\\A");
}

}  // namespace
}  // namespace kvx
