#include "manifest/managed_path.h"

#include <algorithm>
#include <array>

#include "foundations/text.h"

namespace kvx {
namespace {

constexpr size_t longest_path_bytes = 400;

constexpr std::array<std::string_view, 7> reserved_stems = {"con", "prn", "aux", "nul", "conin$", "conout$", "clock$"};
constexpr size_t longest_reserved_stem = 7;
constexpr std::string_view forbidden_characters = "\"*:<>?|";
constexpr std::wstring_view user_data_folder = L"Saved";
constexpr std::wstring_view state_folder = L".kvx_patch";
constexpr std::array<std::wstring_view, 3> launcher_names = {L"KVXLauncher.exe", L"KVXLauncher.new.exe",
                                                             L"KVXLauncher.old.exe"};

bool fail(const char* text, std::string& error) {
  error = text;
  return false;
}

// By byte value.
constexpr std::array<bool, 256> is_forbidden = [] {
  std::array<bool, 256> table{};
  std::fill_n(table.begin(), 0x20, true);
  for (const char c : forbidden_characters) table[static_cast<unsigned char>(c)] = true;
  return table;
}();

bool has_forbidden_byte(std::string_view component) {
  return std::any_of(component.begin(), component.end(),
                     [](char c) { return is_forbidden[static_cast<unsigned char>(c)]; });
}

bool is_reserved_device(std::string_view component) {
  const size_t length = std::min(component.find('.'), component.size());
  if (length > longest_reserved_stem) return false;
  const std::string stem = to_lower_ascii(component.substr(0, length));
  if (std::find(reserved_stems.begin(), reserved_stems.end(), stem) != reserved_stems.end()) return true;
  return stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) && stem[3] >= '0' && stem[3] <= '9';
}

// One part of a path.
struct Component {
  std::string_view name;
  bool path_is_ascii;
  bool is_first;
  bool is_last;
};

// Case is ignored as the file system does it.
bool is_called(const Component& component, std::wstring_view name) {
  // ASCII of another length cannot be equal, and needs no conversion.
  if (component.path_is_ascii && component.name.size() != name.size()) return false;
  return equals_ignore_case(to_wide(component.name), name);
}

bool is_launcher_file(const Component& component, std::wstring_view own_name) {
  return is_called(component, own_name) ||
         std::any_of(launcher_names.begin(), launcher_names.end(),
                     [&component](std::wstring_view name) { return is_called(component, name); });
}

bool check_component(const Component& component, std::wstring_view own_name, std::string& error) {
  const std::string_view name = component.name;
  if (name.empty()) return fail("empty path component", error);
  if (name == "." || name == "..") return fail("'.' or '..' component", error);
  if (has_forbidden_byte(name)) return fail("invalid character", error);
  if (name.back() == ' ' || name.back() == '.') return fail("component ends with a space or dot", error);
  if (is_reserved_device(name)) return fail("reserved device name", error);
  if (is_called(component, user_data_folder)) return fail("user data folder 'Saved' is never managed", error);
  if (component.is_first && is_called(component, state_folder)) return fail("launcher state folder", error);
  if (component.is_last && is_launcher_file(component, own_name)) {
    return fail("the launcher is not managed as a game file", error);
  }
  return true;
}

}  // namespace

bool is_managed_path(std::string_view path, std::wstring_view own_name, std::string& error) {
  if (path.empty() || path.size() > longest_path_bytes) return fail("empty or too long", error);
  if (path.find('\\') != std::string_view::npos) return fail("backslash in path", error);
  if (path.front() == '/' || path.back() == '/') return fail("leading or trailing '/'", error);
  const bool path_is_ascii = is_ascii(path);
  for (size_t start = 0; start <= path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    const Component component{path.substr(start, end - start), path_is_ascii, start == 0, end == path.size()};
    if (!check_component(component, own_name, error)) return false;
    start = end + 1;
  }
  return true;
}

std::wstring native_path(std::string_view path) {
  std::wstring native = to_wide(path);
  std::replace(native.begin(), native.end(), L'/', L'\\');
  return native;
}

void append_native_path(std::string_view path, std::wstring& folder) {
  if (!is_ascii(path)) {
    folder += native_path(path);
    return;
  }
  const size_t folder_chars = folder.size();
  folder.resize(folder_chars + path.size());
  std::transform(path.begin(), path.end(), folder.begin() + static_cast<std::ptrdiff_t>(folder_chars),
                 [](char c) { return c == '/' ? L'\\' : static_cast<wchar_t>(c); });
}

std::wstring path_identity(std::wstring_view native_path) { return to_upper(native_path); }

}  // namespace kvx
