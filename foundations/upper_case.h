// Upper case as Windows has it for file names (CharUpperBuffW), for systems that are not Windows. Any thread.
#pragma once

#include <cstdint>

namespace kvx {

// Of one unit of UTF-16.
[[nodiscard]] uint16_t upper_case(uint16_t unit);

}  // namespace kvx
