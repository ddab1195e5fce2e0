#include <windows.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/text.h"
#include "foundations/unique_handle.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::NotNull;

struct LibraryTraits {
  using value_type = HMODULE;
  static value_type none() { return nullptr; }
  static void close(value_type value) { FreeLibrary(value); }
};

class ProgramResources : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(program_) << "error " << GetLastError(); }

  // The bytes of a resource; empty when the program has none of that type and id.
  [[nodiscard]] std::string_view resource(const wchar_t* type, WORD id) const {
    HRSRC found = FindResourceW(program_.get(), MAKEINTRESOURCEW(id), type);
    if (found == nullptr) return {};
    HGLOBAL loaded = LoadResource(program_.get(), found);
    return {static_cast<const char*>(LockResource(loaded)), SizeofResource(program_.get(), found)};
  }

  std::wstring path_ = to_wide(build_path(KVX_PROGRAM_FILE));
  UniqueHandle<LibraryTraits> program_{LoadLibraryExW(path_.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE)};
};

std::string with_single_blanks(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const bool blank = c == ' ' || c == '\n' || c == '\r' || c == '\t';
    if (!blank) {
      result += c;
    } else if (!result.ends_with(' ')) {
      result += ' ';
    }
  }
  return result;
}

TEST_F(ProgramResources, ApplicationManifestIsEmbedded) {
  const std::string manifest = with_single_blanks(resource(RT_MANIFEST, 1));
  ASSERT_FALSE(manifest.empty());
  EXPECT_THAT(manifest, HasSubstr("name=\"KVX.Launcher\" version=\"" KVX_PROGRAM_VERSION_DOTTED "\""));
  for (const char* element : {
           R"(name="Microsoft.Windows.Common-Controls" version="6.0.0.0" processorArchitecture="amd64" )"
           R"(publicKeyToken="6595b64144ccf1df")",
           R"(<requestedExecutionLevel level="asInvoker" uiAccess="false"/>)",
           R"(<dpiAware xmlns="http://schemas.microsoft.com/SMI/2005/WindowsSettings">true/pm</dpiAware>)",
           R"(<dpiAwareness xmlns="http://schemas.microsoft.com/SMI/2016/WindowsSettings">PerMonitorV2, PerMonitor)"
           R"(</dpiAwareness>)",
           R"(<longPathAware xmlns="http://schemas.microsoft.com/SMI/2016/WindowsSettings">true</longPathAware>)",
           R"(<supportedOS Id="{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"/>)",
       }) {
    EXPECT_THAT(manifest, HasSubstr(element));
  }
}

// The system itself reads the manifest: it takes no malformed one.
TEST_F(ProgramResources, ApplicationManifestMakesAnActivationContext) {
  ACTCTXW request{};
  request.cbSize = sizeof(request);
  request.dwFlags = ACTCTX_FLAG_RESOURCE_NAME_VALID;
  request.lpSource = path_.c_str();
  request.lpResourceName = MAKEINTRESOURCEW(1);
  HANDLE context = CreateActCtxW(&request);
  ASSERT_NE(context, INVALID_HANDLE_VALUE) << "error " << GetLastError();
  ReleaseActCtx(context);
}

#pragma pack(push, 2)
// As an icon group lies in a program; no header of the system has it.
struct IconGroupEntry {
  uint8_t width;  // 0 is 256
  uint8_t height;
  uint8_t color_count;
  uint8_t reserved;
  uint16_t planes;
  uint16_t bit_count;
  uint32_t bytes;
  uint16_t id;
};
struct IconGroupHeader {
  uint16_t reserved;
  uint16_t type;
  uint16_t count;
};
#pragma pack(pop)

// The width and height that the picture itself states; an icon's bitmap counts its mask in its height.
std::pair<uint32_t, uint32_t> picture_size(std::string_view picture) {
  if (picture.starts_with("\x89PNG")) {
    const auto big_endian = [&picture](size_t offset) {
      uint32_t value = 0;
      for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(picture[offset + i]);
      return value;
    };
    return {big_endian(16), big_endian(20)};
  }
  BITMAPINFOHEADER header{};
  std::memcpy(&header, picture.data(), std::min(sizeof(header), picture.size()));
  return {static_cast<uint32_t>(header.biWidth), static_cast<uint32_t>(header.biHeight) / 2};
}

TEST_F(ProgramResources, IconHasEverySizeThatWindowsAsksFor) {
  const std::string_view group = resource(RT_GROUP_ICON, 1);
  IconGroupHeader header{};
  ASSERT_GE(group.size(), sizeof(header));
  std::memcpy(&header, group.data(), sizeof(header));
  ASSERT_EQ(header.type, 1);
  ASSERT_EQ(group.size(), sizeof(header) + header.count * sizeof(IconGroupEntry));
  std::vector<uint32_t> sizes;
  for (size_t i = 0; i < header.count; ++i) {
    IconGroupEntry entry{};
    std::memcpy(&entry, group.data() + sizeof(header) + i * sizeof(entry), sizeof(entry));
    const uint32_t size = entry.width == 0 ? 256 : entry.width;
    SCOPED_TRACE(size);
    sizes.push_back(size);
    EXPECT_EQ(entry.height, entry.width);
    EXPECT_EQ(entry.bit_count, 32);
    const std::string_view picture = resource(RT_ICON, entry.id);
    EXPECT_EQ(picture.size(), entry.bytes);
    EXPECT_EQ(picture_size(picture), std::pair(size, size));
  }
  std::ranges::sort(sizes);
  EXPECT_THAT(sizes, ElementsAre(16, 20, 24, 32, 40, 48, 64, 256));
}

TEST_F(ProgramResources, IconLoadsAtTheSizesOfATitleBarAndATaskList) {
  for (const int size : {16, 32, 48, 256}) {
    HANDLE icon = LoadImageW(program_.get(), MAKEINTRESOURCEW(1), IMAGE_ICON, size, size, LR_DEFAULTCOLOR);
    ASSERT_THAT(icon, NotNull()) << size << ", error " << GetLastError();
    DestroyIcon(static_cast<HICON>(icon));
  }
}

class ProgramVersionRecord : public testing::Test {
 protected:
  void SetUp() override {
    const std::wstring path = to_wide(build_path(KVX_PROGRAM_FILE));
    record_.resize(GetFileVersionInfoSizeW(path.c_str(), nullptr));
    ASSERT_FALSE(record_.empty()) << "error " << GetLastError();
    ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(record_.size()), record_.data()));
  }

  template <typename Value>
  [[nodiscard]] std::span<const Value> query(const std::wstring& name) const {
    void* value = nullptr;
    UINT count = 0;
    if (VerQueryValueW(record_.data(), name.c_str(), &value, &count) == 0) return {};
    return {static_cast<const Value*>(value), count};
  }

  std::vector<char> record_;
};

TEST_F(ProgramVersionRecord, TextsSayWhatTheProgramIs) {
  const std::map<std::wstring, std::wstring> expected = {
      {L"CompanyName", L"KVX"},
      {L"FileDescription", L"KVX Launcher"},
      {L"FileVersion", to_wide(KVX_PROGRAM_VERSION)},
      {L"InternalName", L"KVXLauncher"},
      {L"LegalCopyright", L"\u00A9 KVX"},
      {L"OriginalFilename", L"KVXLauncher.exe"},
      {L"ProductName", L"KVX"},
      {L"ProductVersion", to_wide(KVX_PROGRAM_VERSION)},
  };
  for (const auto& [name, text] : expected) {
    const auto value = query<wchar_t>(L"\\StringFileInfo\\040904B0\\" + name);
    ASSERT_FALSE(value.empty()) << to_utf8(name);
    EXPECT_EQ(std::wstring(value.data()), text) << to_utf8(name);
  }
  // The language of those texts, and UTF-16.
  EXPECT_THAT(query<WORD>(L"\\VarFileInfo\\Translation").first(2), ElementsAre(0x0409, 1200));
}

TEST_F(ProgramVersionRecord, NumbersAreTheVersion) {
  const auto found = query<VS_FIXEDFILEINFO>(L"\\");
  ASSERT_FALSE(found.empty());
  const VS_FIXEDFILEINFO& fixed = found.front();
  constexpr std::array<WORD, 4> version = {KVX_PROGRAM_VERSION_NUMBERS};
  const auto numbers = [](DWORD high, DWORD low) {
    return std::array<WORD, 4>{HIWORD(high), LOWORD(high), HIWORD(low), LOWORD(low)};
  };
  EXPECT_EQ(numbers(fixed.dwFileVersionMS, fixed.dwFileVersionLS), version);
  EXPECT_EQ(numbers(fixed.dwProductVersionMS, fixed.dwProductVersionLS), version);
  EXPECT_EQ(fixed.dwFileType, static_cast<DWORD>(VFT_APP));
}

}  // namespace
}  // namespace kvx::test
