// The command line of the publisher's tool.
#pragma once

#include <string>
#include <vector>

namespace kvx::publish {

struct CommandOutput {
  std::string data;      // for standard output
  std::string messages;  // for standard error
};

// Runs one command; `arguments` is UTF-8 without the program's name. Returns the exit code.
[[nodiscard]] int run_command(std::vector<std::string> arguments, CommandOutput& output);

}  // namespace kvx::publish
