#include "engine/state_lines.h"

#include "engine/text_lines.h"

namespace kvx {

void read_state_lines(std::string_view text, StateValues& values) {
  values.clear();
  for (const std::string_view line : split_lines(text)) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) continue;
    values[std::string(line.substr(0, equals))] = std::string(line.substr(equals + 1));
  }
}

std::string state_lines(const StateValues& values) {
  std::string text;
  for (const auto& [key, value] : values) text += key + "=" + value + "\n";
  return text;
}

}  // namespace kvx
