#include "tools/kvxpublish/private_key_check.h"

#include <windows.h>

#include <array>
#include <string_view>

#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"

namespace kvx::publish {
namespace {

constexpr size_t head_bytes = 4096;

// The parameters of a key, or its certificate, may go before it.
bool begins_as_private_key(const std::wstring& path) {
  const FileHandle file(CreateFileW(long_path(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  std::array<char, head_bytes> buffer{};
  DWORD got = 0;
  if (!file || ReadFile(file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &got, nullptr) == 0) return false;
  const std::string_view head(buffer.data(), got);
  return head.starts_with("-----BEGIN") && head.find("PRIVATE KEY-----") != std::string_view::npos;
}

}  // namespace

bool check_no_private_key(const std::vector<GameFile>& files, const std::wstring& key, Failure& failure) {
  for (const GameFile& file : files) {
    const bool is_key = !key.empty() && equals_ignore_case(file.source, key);
    if (!is_key && !begins_as_private_key(file.source)) continue;
    return fail(ExitCode::refused,
                to_utf8(file.source) +
                    ": holds a private key; take it out of the game's folder, or leave it out with --exclude",
                failure);
  }
  return true;
}

}  // namespace kvx::publish
