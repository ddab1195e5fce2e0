// The two kinds of transfers: a small file into memory, and a blob into a file from any position. Both run on the
// calling thread and may run on several threads at once with one session. Both look for a stop before every read;
// `stop` may be null.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "foundations/stop_signal.h"
#include "net/http_session.h"
#include "net/receive_buffer.h"

namespace kvx {

// What fetch_to_memory returns when there is no HTTP status.
constexpr int32_t transport_failure = 0;

// 200 with the whole body; another HTTP status without the body, `error` then untouched; or transport_failure with
// `error` filled and `body` empty. A body of more than `max_bytes` is a failure, and so is a stop, with "cancelled".
[[nodiscard]] int32_t fetch_to_memory(const HttpSession& session, const std::wstring& url, std::string& body,
                                      uint64_t max_bytes, std::string& error, const StopSignal* stop = nullptr);

enum class TransferResult : uint8_t {
  ok,              // all expected bytes were received and stored
  network,         // a network step failed, or the connection closed early
  http_status,     // a status other than 200, 206 and 416
  range_ignored,   // a resume was asked for, and the server sent the whole file; no error text
  range_rejected,  // 416
  cancelled,       // a stop was requested
  write_failed,    // the sink refused a chunk
  protocol,        // the URL was refused, or the response contradicts what was asked for
};

// Fetches the bytes from `offset` to the end of a file of `total_size` bytes and passes them to `sink` in order,
// through `buffer`. Where another thread passes on what waits in the buffer, it calls the sink, too. `http_status` is 0
// until there is a response.
[[nodiscard]] TransferResult download_range(const HttpSession& session, const std::wstring& url, uint64_t offset,
                                            uint64_t total_size, const TransferSink& sink, const StopSignal* stop,
                                            ReceiveBuffer& buffer, uint32_t& http_status, std::string& error);

}  // namespace kvx
