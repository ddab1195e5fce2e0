// The one way a Windows or WinHTTP error code becomes words.
#pragma once

#include <cstdint>
#include <string>

namespace kvx {

// The system's English text for a GetLastError or WinHTTP code followed by " (error N)", for example "The operation
// timed out (error 12002)"; just "error N" when there is no text. UTF-8, never empty. Any thread.
[[nodiscard]] std::string error_text(uint32_t code);

}  // namespace kvx
