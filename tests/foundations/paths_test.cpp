#include "foundations/paths.h"

#include <windows.h>

#include <gtest/gtest.h>

#include "foundations/text.h"

namespace kvx {
namespace {

struct Case {
  const wchar_t* path;
  const wchar_t* expected;
};

TEST(LongPath, AddsThePrefixOnce) {
  for (const Case& c : {Case{LR"(C:\x)", LR"(\\?\C:\x)"},
                        {LR"(\\srv\share\f)", LR"(\\?\UNC\srv\share\f)"},
                        {LR"(\\?\C:\x)", LR"(\\?\C:\x)"},
                        {LR"(\\?\UNC\srv\share)", LR"(\\?\UNC\srv\share)"},
                        {LR"(x)", LR"(\\?\x)"},
                        {L"", LR"(\\?\)"},
                        {LR"(\x)", LR"(\\?\\x)"}}) {
    EXPECT_EQ(long_path(c.path), c.expected) << to_utf8(c.path);
    const std::wstring path = c.path;
    EXPECT_STREQ(LongPath(path).c_str(), c.expected) << to_utf8(c.path);
    EXPECT_EQ(LongPath(path).c_str() == path.c_str(), path == c.expected) << to_utf8(c.path);
  }
}

TEST(FullPath, IsAbsoluteWithoutTrailingSeparators) {
  for (const Case& c : {Case{LR"(C:\)", LR"(C:\)"},
                        {LR"(C:\a\\\)", LR"(C:\a)"},
                        {LR"(C:\games\)", LR"(C:\games)"},
                        {L"C:/games/", LR"(C:\games)"},
                        {LR"(C:\a\..\b\.\c)", LR"(C:\b\c)"},
                        {LR"(C:\a)", LR"(C:\a)"},
                        {LR"(C:\a\..)", LR"(C:\)"}}) {
    EXPECT_EQ(full_path(c.path), c.expected) << to_utf8(c.path);
  }
}

TEST(FullPath, ResolvesAgainstTheCurrentFolder) {
  wchar_t current[MAX_PATH];
  ASSERT_NE(GetCurrentDirectoryW(MAX_PATH, current), 0U);
  EXPECT_EQ(full_path(L"some.file"), join_path(current, L"some.file"));
}

TEST(FullPath, KeepsAPathOfAnyLength) {
  const std::wstring path = LR"(C:\)" + std::wstring(200, L'a') + L'\\' + std::wstring(200, L'b');
  EXPECT_EQ(full_path(path + L"\\"), path);
}

TEST(FullPath, ReturnsWhatTheSystemRefuses) { EXPECT_EQ(full_path(L""), L""); }

TEST(JoinPath, PutsOneBackslashBetween) {
  EXPECT_EQ(join_path(LR"(C:\a)", L"b"), LR"(C:\a\b)");
  EXPECT_EQ(join_path(LR"(C:\)", L"b"), LR"(C:\b)");
  EXPECT_EQ(join_path(L"", L"b"), L"b");
  EXPECT_EQ(join_path(L"C:/a/", L"b"), LR"(C:/a/\b)");  // only a backslash counts
  EXPECT_EQ(join_path(LR"(C:\a)", L""), LR"(C:\a\)");
}

TEST(ParentPath, IsEverythingBeforeTheLastSeparator) {
  for (const Case& c : {Case{LR"(C:\a\b)", LR"(C:\a)"},
                        {LR"(C:\a)", LR"(C:\)"},
                        {LR"(C:\)", LR"(C:\)"},
                        {LR"(C:/a)", LR"(C:/)"},
                        {L"C:/a/b", L"C:/a"},
                        {LR"(a\b)", L"a"},
                        {L"a", L""},
                        {L"", L""},
                        {LR"(\a)", L""},
                        {LR"(C:\a\)", LR"(C:\a)"},
                        {LR"(ab\c)", L"ab"},
                        {LR"(\\?\C:\a)", LR"(\\?\C:)"}}) {
    EXPECT_EQ(parent_path(c.path), c.expected) << to_utf8(c.path);
  }
}

TEST(FileName, IsEverythingAfterTheLastSeparator) {
  for (const Case& c : {Case{LR"(C:\a\b.c)", L"b.c"},
                        {L"C:/a/b", L"b"},
                        {LR"(C:\a/b)", L"b"},
                        {LR"(C:/a\b)", L"b"},
                        {L"a", L"a"},
                        {L"", L""},
                        {LR"(C:\a\)", L""},
                        {LR"(C:\)", L""}}) {
    EXPECT_EQ(file_name(c.path), c.expected) << to_utf8(c.path);
  }
}

}  // namespace
}  // namespace kvx
