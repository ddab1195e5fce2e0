#include "engine/text_lines.h"

#include <algorithm>

namespace kvx {

std::vector<std::string_view> split_lines(std::string_view text) {
  std::vector<std::string_view> lines;
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find('\n', start), text.size());
    std::string_view line = text.substr(start, end - start);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

}  // namespace kvx
