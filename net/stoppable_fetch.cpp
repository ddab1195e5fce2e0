#include "net/stoppable_fetch.h"

#include <memory>
#include <utility>

#include "net/transfer.h"

namespace kvx {
namespace {

// All that a fetch touches besides the session and the stop, so that it may be left behind.
struct Fetch {
  std::wstring url;
  uint64_t max_bytes = 0;
  int32_t status = transport_failure;
  std::string body;
  std::string error;
};

}  // namespace

int32_t fetch_or_stop(TransferThreads& threads, const std::wstring& url, std::string& body, uint64_t max_bytes,
                      std::string& error) {
  body.clear();
  const auto fetch = std::make_shared<Fetch>();
  fetch->url = url;
  fetch->max_bytes = max_bytes;
  const auto transfer = [fetch, &session = threads.session(), &stop = threads.stop()] {
    fetch->status = fetch_to_memory(session, fetch->url, fetch->body, fetch->max_bytes, fetch->error, &stop);
  };
  if (!threads.run(1, transfer)) {
    error = "cancelled";
    return transport_failure;
  }
  body = std::move(fetch->body);
  if (fetch->status == transport_failure) error = fetch->error;
  return fetch->status;
}

}  // namespace kvx
