// A program that a command starts, watches and ends with itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundations/system_handles.h"
#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

// The full path of a program in PATH, empty when there is none.
[[nodiscard]] std::wstring find_program(const wchar_t* name);

class ChildProgram {
 public:
  // `command_line` begins with the program's own name. What the program writes goes to the file `log`.
  [[nodiscard]] bool start(const std::wstring& program, const std::wstring& command_line, const std::wstring& folder,
                           const std::wstring& log, Failure& failure);

  // Its exit code, or nothing while it still runs after `limit_ms`.
  [[nodiscard]] std::optional<uint32_t> wait(uint32_t limit_ms) const;

 private:
  KernelHandle process_;
  KernelHandle job_;  // ends the program and those it has started, at the latest when this process ends
};

}  // namespace kvx::publish
