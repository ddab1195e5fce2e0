// What text.h leaves to the system: text that is not ASCII. One implementation for each system. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace kvx::unicode {

// Sequences that are not valid become U+FFFD. Text that the system refuses gives an empty string.
[[nodiscard]] std::string to_utf8(std::wstring_view text);
[[nodiscard]] std::wstring to_wide(std::string_view text);

// Each unit of UTF-16 by itself, as CharUpperBuffW does it: nothing becomes longer or shorter.
void make_upper(std::wstring& text);

// Of texts with the same number of units, as CompareStringOrdinal does it.
[[nodiscard]] bool equal_ignoring_case(std::wstring_view a, std::wstring_view b);

}  // namespace kvx::unicode
