// fetch_to_memory for a caller that does not wait for a server that is stuck.
#pragma once

#include <cstdint>
#include <string>

#include "net/transfer_threads.h"

namespace kvx {

// As fetch_to_memory, on one of `threads`, with their session and their stop.
[[nodiscard]] int32_t fetch_or_stop(TransferThreads& threads, const std::wstring& url, std::string& body,
                                    uint64_t max_bytes, std::string& error);

}  // namespace kvx
