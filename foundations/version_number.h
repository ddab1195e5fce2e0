// Dotted version numbers: one to four decimal components, each at most 1,000,000,000, at most 32 characters in all.
// Any thread.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace kvx {

// On success fills `components`. On failure returns false and leaves `components` unspecified.
[[nodiscard]] bool parse_version(std::string_view text, std::vector<uint32_t>& components);

[[nodiscard]] bool is_version(std::string_view text);

// -1, 0 or 1. Missing components count as 0. A text that is not a version compares equal to anything, so that no
// decision is ever taken on it.
[[nodiscard]] int compare_versions(std::string_view a, std::string_view b);

}  // namespace kvx
