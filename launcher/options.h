// The command line as a record. Filled once at the start of the process; the worker has its own copy.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvx {

struct Options {
  std::wstring channel;   // empty: the stored channel, else "live"
  std::wstring base_url;  // empty: the built-in one
  bool unattended = false;
  bool hidden = false;
  bool no_launch = false;
  bool repair = false;
  bool self_updated = false;
  uint32_t wait_pid = 0;                        // 0: wait for no process
  std::vector<std::wstring> forwarded_options;  // as given, for the launcher that a self-update starts
  std::vector<std::wstring> passthrough_args;   // every argument that is not an option, as given
};

// The arguments after the program's name. Never fails: unknown options are ignored.
[[nodiscard]] Options parse_arguments(const std::vector<std::wstring>& arguments);

// The process's own command line; all defaults when the system cannot split it.
[[nodiscard]] Options parse_command_line();

}  // namespace kvx
