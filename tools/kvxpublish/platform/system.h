// What a command asks the system about this program and this moment. Any thread.
#pragma once

#include <cstdint>

namespace kvx::publish {

[[nodiscard]] uint64_t process_id();

// As files have it: 100 ns units since 1601.
[[nodiscard]] uint64_t file_time_now();

}  // namespace kvx::publish
