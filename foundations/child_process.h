// Starting a program and letting it go. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace kvx {

// Starts `program` with the complete command line `command_line` (the program's own name first) in `folder`, with this
// program's environment and none of its handles, and does not wait for it. A path too long for a working folder (over
// 258 characters) is replaced by its short path; where it has none, the program inherits this one's folder, and the log
// says so. On success fills `process_id`; on failure returns false and `error` is the Windows error code.
[[nodiscard]] bool start_program(const std::wstring& program, const std::wstring& command_line,
                                 const std::wstring& folder, uint32_t& process_id, uint32_t& error);

}  // namespace kvx
