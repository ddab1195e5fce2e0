#include "foundations/paths.h"

#include <windows.h>

namespace kvx {
namespace {

constexpr wchar_t separators[] = L"\\/";
constexpr size_t drive_root_chars = 3;  // "C:\"
constexpr std::wstring_view plain_prefix = LR"(\\?\)";
constexpr std::wstring_view unc_prefix = LR"(\\?\UNC\)";
constexpr std::wstring_view unc_start = LR"(\\)";

}  // namespace

std::wstring long_path(const std::wstring& path) {
  if (path.starts_with(plain_prefix)) return path;
  if (path.starts_with(unc_start)) return std::wstring(unc_prefix) + path.substr(unc_start.size());
  return std::wstring(plain_prefix) + path;
}

LongPath::LongPath(const std::wstring& path)
    : made_(path.starts_with(plain_prefix) ? std::wstring() : long_path(path)), path_(made_.empty() ? path : made_) {}

std::wstring without_long_path_prefix(const std::wstring& path) {
  if (path.starts_with(unc_prefix)) return std::wstring(unc_start) + path.substr(unc_prefix.size());
  if (path.starts_with(plain_prefix)) return path.substr(plain_prefix.size());
  return path;
}

std::wstring full_path(const std::wstring& path) {
  const DWORD needed = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  if (needed == 0) return path;
  std::wstring result(needed, L'\0');
  result.resize(GetFullPathNameW(path.c_str(), needed, result.data(), nullptr));
  while (result.size() > drive_root_chars && (result.back() == L'\\' || result.back() == L'/')) result.pop_back();
  return result;
}

std::wstring join_path(const std::wstring& folder, const std::wstring& name) {
  if (folder.empty()) return name;
  return folder.back() == L'\\' ? folder + name : folder + L'\\' + name;
}

std::wstring parent_path(const std::wstring& path) {
  const size_t separator = path.find_last_of(separators);
  if (separator == std::wstring::npos) return {};
  if (separator == 2 && path[1] == L':') return path.substr(0, drive_root_chars);
  return path.substr(0, separator);
}

std::wstring file_name(const std::wstring& path) {
  const size_t separator = path.find_last_of(separators);
  return separator == std::wstring::npos ? path : path.substr(separator + 1);
}

}  // namespace kvx
