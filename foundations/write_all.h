// Writing to an open file so that a failure always has its reason.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace kvx {

// Writes `count` bytes where the file stands, in pieces of at most 1 MiB. On failure `error` is the Windows error code,
// never 0, and how much was written is unknown.
[[nodiscard]] bool write_all(HANDLE file, const void* bytes, size_t count, uint32_t& error);

// Waits until what was written is on the disk.
[[nodiscard]] bool flush_to_disk(HANDLE file, uint32_t& error);

}  // namespace kvx
