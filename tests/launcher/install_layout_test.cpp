#include "launcher/install_layout.h"

#include <windows.h>

#include <gtest/gtest.h>

#include "foundations/paths.h"

namespace kvx {
namespace {

TEST(InstallLayout, IsDerivedFromTheLaunchersPath) {
  const struct {
    const wchar_t* module_path;
    const wchar_t* self_path;
    const wchar_t* self_name;
    const wchar_t* install_dir;
    const wchar_t* long_install_dir;
  } cases[] = {
      {LR"(C:\Games\KVX\KVXLauncher.exe)", LR"(C:\Games\KVX\KVXLauncher.exe)", L"KVXLauncher.exe", LR"(C:\Games\KVX)",
       LR"(\\?\C:\Games\KVX)"},
      {LR"(D:\KVXLauncher.exe)", LR"(D:\KVXLauncher.exe)", L"KVXLauncher.exe", L"D:", LR"(\\?\D:)"},
      {LR"(\\?\D:\KVXLauncher.exe)", LR"(D:\KVXLauncher.exe)", L"KVXLauncher.exe", L"D:", LR"(\\?\D:)"},
      {LR"(\\?\C:\Games\KVX\KVXLauncher.exe)", LR"(C:\Games\KVX\KVXLauncher.exe)", L"KVXLauncher.exe",
       LR"(C:\Games\KVX)", LR"(\\?\C:\Games\KVX)"},
      {LR"(\\?\UNC\srv\games\KVXLauncher.exe)", LR"(\\srv\games\KVXLauncher.exe)", L"KVXLauncher.exe",
       LR"(\\srv\games)", LR"(\\?\UNC\srv\games)"},
      {LR"(\\srv\games\KVX\Start me.exe)", LR"(\\srv\games\KVX\Start me.exe)", L"Start me.exe", LR"(\\srv\games\KVX)",
       LR"(\\?\UNC\srv\games\KVX)"},
      {LR"(C:\Games/KVX/KVXLauncher.exe)", LR"(C:\Games\KVX\KVXLauncher.exe)", L"KVXLauncher.exe", LR"(C:\Games\KVX)",
       LR"(\\?\C:\Games\KVX)"},
      {LR"(C:\Games\other\..\KVX\KVXLauncher.exe)", LR"(C:\Games\KVX\KVXLauncher.exe)", L"KVXLauncher.exe",
       LR"(C:\Games\KVX)", LR"(\\?\C:\Games\KVX)"},
      {LR"(C:\Spiele ä\KVX.EXE)", LR"(C:\Spiele ä\KVX.EXE)", L"KVX.EXE", LR"(C:\Spiele ä)", LR"(\\?\C:\Spiele ä)"},
  };
  for (const auto& item : cases) {
    const InstallLayout layout = make_install_layout(item.module_path);
    const std::wstring install_dir = item.install_dir;
    EXPECT_EQ(layout.self_path, item.self_path);
    EXPECT_EQ(layout.self_name, item.self_name);
    EXPECT_EQ(layout.install_dir, install_dir);
    EXPECT_EQ(long_path(layout.install_dir), item.long_install_dir);
    EXPECT_EQ(layout.staging_dir, install_dir + LR"(\.kvx_patch)");
    EXPECT_EQ(layout.download_dir, install_dir + LR"(\.kvx_patch\dl)");
    EXPECT_EQ(layout.blobs_dir, install_dir + LR"(\.kvx_patch\blobs)");
    EXPECT_EQ(layout.staging_file(L"state.txt"), install_dir + LR"(\.kvx_patch\state.txt)");
  }
}

TEST(InstallLayout, OfThisProcessIsThatOfItsProgram) {
  wchar_t path[MAX_PATH + 1];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  InstallLayout layout;
  ASSERT_TRUE(find_install_layout(layout));
  EXPECT_EQ(layout.self_path, std::wstring(path, length));
  EXPECT_EQ(layout.install_dir + L'\\' + layout.self_name, layout.self_path);
}

}  // namespace
}  // namespace kvx
