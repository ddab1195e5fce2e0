// The command line of the publisher's tool.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/cli/console.h"

namespace kvx::publish {

// Runs one command; `arguments` is UTF-8 without the program's name. Returns the exit code, after everything that is to
// be said has been written to the console.
[[nodiscard]] int run_command(const std::vector<std::string>& arguments, Console& console);

}  // namespace kvx::publish
