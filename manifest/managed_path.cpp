#include "manifest/managed_path.h"

#include <algorithm>
#include <array>

#include "foundations/text.h"

namespace kvx {
namespace {

constexpr size_t longest_path_bytes = 400;

constexpr std::array<std::string_view, 7> reserved_stems = {"con", "prn", "aux", "nul", "conin$", "conout$", "clock$"};
constexpr std::string_view forbidden_characters = "\"*:<>?|";
constexpr std::wstring_view user_data_folder = L"Saved";
constexpr std::wstring_view state_folder = L".kvx_patch";
constexpr std::array<std::wstring_view, 3> launcher_names = {L"KVXLauncher.exe", L"KVXLauncher.new.exe",
                                                             L"KVXLauncher.old.exe"};

bool fail(const char* text, std::string& error) {
  error = text;
  return false;
}

bool has_forbidden_byte(std::string_view component) {
  return std::any_of(component.begin(), component.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x20 || forbidden_characters.find(c) != std::string_view::npos;
  });
}

bool is_reserved_device(std::string_view component) {
  const std::string stem = to_lower_ascii(component.substr(0, component.find('.')));
  if (std::find(reserved_stems.begin(), reserved_stems.end(), stem) != reserved_stems.end()) return true;
  return stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) && stem[3] >= '0' && stem[3] <= '9';
}

bool is_launcher_file(std::wstring_view name, std::wstring_view own_name) {
  return equals_ignore_case(name, own_name) ||
         std::any_of(launcher_names.begin(), launcher_names.end(),
                     [name](std::wstring_view launcher_name) { return equals_ignore_case(name, launcher_name); });
}

bool check_component(std::string_view component, bool is_first, bool is_last, std::wstring_view own_name,
                     std::string& error) {
  if (component.empty()) return fail("empty path component", error);
  if (component == "." || component == "..") return fail("'.' or '..' component", error);
  if (has_forbidden_byte(component)) return fail("invalid character", error);
  if (component.back() == ' ' || component.back() == '.') return fail("component ends with a space or dot", error);
  if (is_reserved_device(component)) return fail("reserved device name", error);
  const std::wstring name = to_wide(component);
  if (equals_ignore_case(name, user_data_folder)) return fail("user data folder 'Saved' is never managed", error);
  if (is_first && equals_ignore_case(name, state_folder)) return fail("launcher state folder", error);
  if (is_last && is_launcher_file(name, own_name)) return fail("the launcher is not managed as a game file", error);
  return true;
}

}  // namespace

bool is_managed_path(std::string_view path, std::wstring_view own_name, std::string& error) {
  if (path.empty() || path.size() > longest_path_bytes) return fail("empty or too long", error);
  if (path.find('\\') != std::string_view::npos) return fail("backslash in path", error);
  if (path.front() == '/' || path.back() == '/') return fail("leading or trailing '/'", error);
  for (size_t start = 0; start <= path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    if (!check_component(path.substr(start, end - start), start == 0, end == path.size(), own_name, error))
      return false;
    start = end + 1;
  }
  return true;
}

std::wstring native_path(std::string_view path) {
  std::wstring native = to_wide(path);
  std::replace(native.begin(), native.end(), L'/', L'\\');
  return native;
}

std::wstring path_identity(std::wstring_view native_path) { return to_upper(native_path); }

}  // namespace kvx
