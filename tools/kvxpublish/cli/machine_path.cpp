#include "tools/kvxpublish/cli/machine_path.h"

#include <algorithm>

#include "foundations/text.h"

namespace kvx::publish {
namespace {

constexpr std::string_view prefix = R"(\\?\unix\)";
constexpr std::string_view prefix_with_slashes = "//?/unix/";

// Where the next of these paths begins.
size_t find_path(std::string_view text) { return std::min(text.find(prefix), text.find(prefix_with_slashes)); }

size_t path_length(std::string_view text) {
  return std::min({text.find('"'), text.find(": "), text.find('\n'), text.size()});
}

}  // namespace

std::string machine_path(const std::wstring& path) { return with_machine_paths(to_utf8(path)); }

std::string with_machine_paths(std::string_view text) {
  std::string result;
  for (size_t at = find_path(text); at != std::string_view::npos; at = find_path(text)) {
    result += text.substr(0, at);
    text.remove_prefix(at + prefix.size() - 1);  // all but the slash
    std::string path(text.substr(0, path_length(text)));
    text.remove_prefix(path.size());
    std::ranges::replace(path, '\\', '/');
    result += path;
  }
  return result.append(text);
}

}  // namespace kvx::publish
