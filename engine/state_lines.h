// The text of state.txt: "key=value" lines in key order, described in docs/formats.md. Pure functions; any thread.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace kvx {

// Keys and values, which hold no line breaks.
using StateValues = std::map<std::string, std::string>;

// Replaces `values`. Lines without a key are skipped; of two with the same key the later one counts.
void read_state_lines(std::string_view text, StateValues& values);

[[nodiscard]] std::string state_lines(const StateValues& values);

}  // namespace kvx
