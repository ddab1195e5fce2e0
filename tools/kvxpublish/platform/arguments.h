// The command line.
#pragma once

#include <string>
#include <vector>

namespace kvx::publish {

// As UTF-8, without the program's own name; from what `main` was given.
[[nodiscard]] std::vector<std::string> program_arguments(int count, char** words);

}  // namespace kvx::publish
