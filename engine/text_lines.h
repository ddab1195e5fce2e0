// The lines of a state file. Any thread.
#pragma once

#include <string_view>
#include <vector>

namespace kvx {

// The pieces of `text` between line feeds, without a carriage return at their ends; what follows the last line feed is
// a line too. They point into `text`.
[[nodiscard]] std::vector<std::string_view> split_lines(std::string_view text);

}  // namespace kvx
