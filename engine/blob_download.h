// Brings blobs from the update server into the blob store: resumed where a partial file is there, retried with growing
// pauses, and accepted only when the content hashes to the blob's name.
#pragma once

#include <cstdint>
#include <string>

#include "engine/blob_store.h"
#include "foundations/stop_signal.h"
#include "net/http_session.h"
#include "net/receive_buffer.h"
#include "ui/ui.h"

namespace kvx {

struct BlobJob {
  std::string hash;   // SHA-256, 64 lower-case hexadecimal characters
  uint64_t size = 0;  // bytes
};

struct BlobDownloadContext {
  Ui& ui;  // progress_done counts the bytes that are on disk
  const StopSignal& stop;
  const std::wstring& base_url;  // ends with "/"
  const BlobStore& store;
};

// True when the blob is in the store, verified. Otherwise `error` is the reason: "cancelled" when a stop was requested,
// unless another failure came first. A partial file stays for the next run. Several threads may download different
// blobs at once, each through its own `buffer`.
[[nodiscard]] bool download_blob(const BlobDownloadContext& context, const HttpSession& session, const BlobJob& job,
                                 ReceiveBuffer& buffer, std::string& error);

}  // namespace kvx
