// Downloads a list of blobs with up to three threads.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "engine/blob_download.h"

namespace kvx {

// True when every blob is in the store, verified. The first failure raises `stop_workers`, which must be one of the
// flags that `context.stop` listens to, and so ends the others; `error` is that first failure's own text, or
// "cancelled" when the user stopped it. Blocks the calling thread until all its threads have ended.
[[nodiscard]] bool download_all(const BlobDownloadContext& context, std::atomic<bool>& stop_workers,
                                std::vector<BlobJob> jobs, std::string& error);

}  // namespace kvx
