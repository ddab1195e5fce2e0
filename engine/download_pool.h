// Downloads blobs on threads of their own, with the session of `threads`, so that a stop never waits for one that is
// stuck in the network or in a flush: it is left behind (net/transfer_threads.h). All that a context refers to must
// outlive `threads`, and its stop must be theirs.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "engine/blob_download.h"
#include "net/transfer_threads.h"

namespace kvx {

// Downloads a list of blobs with up to three threads. True when every blob is in the store, verified. The first failure
// raises `stop_workers`, which must be one of the flags that `context.stop` and `threads` listen to, and so ends the
// others: those that receive bytes soon, while one that is stuck is left behind here, too. `error` is that first
// failure's own text, or "cancelled" when the user stopped it.
[[nodiscard]] bool download_all(const BlobDownloadContext& context, TransferThreads& threads,
                                std::atomic<bool>& stop_workers, std::vector<BlobJob> jobs, std::string& error);

// download_blob for one blob, on one of `threads`.
[[nodiscard]] bool download_one(const BlobDownloadContext& context, TransferThreads& threads, const BlobJob& job,
                                std::string& error);

}  // namespace kvx
