// A program that a command starts, watches and ends with itself.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

namespace fs = std::filesystem;

// The full path of a program in PATH, on Linux also in /usr/sbin; empty when there is none. `name` is without ".exe".
[[nodiscard]] fs::path find_program(const std::string& name);

class ChildProgram {
 public:
  ChildProgram();
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;
  ~ChildProgram();  // ends the program

  // `command` is the program's own name and its arguments with single blanks between them; none needs quotes. It runs
  // in `folder`, and what it writes goes to the end of the file `log`.
  [[nodiscard]] bool start(const fs::path& program, const std::string& command, const fs::path& folder,
                           const fs::path& log, Failure& failure);

  // Its exit code, or nothing while it still runs after `limit_ms`.
  [[nodiscard]] std::optional<uint32_t> wait(uint32_t limit_ms) const;

 private:
  struct Process;
  std::unique_ptr<Process> process_;
};

}  // namespace kvx::publish
