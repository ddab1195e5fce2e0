// Writing to an open file so that a failure always has its reason.
#pragma once

#include <cstddef>
#include <cstdint>

#include "foundations/system_handles.h"

namespace kvx::publish {

// On failure `error` is the Windows error code, never 0.
[[nodiscard]] bool write_all(const FileHandle& file, const void* bytes, size_t count, uint32_t& error);

}  // namespace kvx::publish
