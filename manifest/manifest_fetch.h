// Fetches the release manifest and its signature from the update server and verifies the signature. Nothing is kept
// between calls and nothing is written to the disk. For the worker thread.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "manifest/built_in_keys.h"
#include "net/transfer_threads.h"

namespace kvx {

enum class ManifestFetchStatus : uint8_t {
  ok,             // both files are there and the signature is valid
  failed,         // no attempt downloaded both, or the wait was cancelled
  not_published,  // the server has no manifest for the channel (404)
  untrusted,      // an attempt downloaded both but the signature was not valid, and none was better later
};

struct ManifestFetchContext {
  TransferThreads& threads;
  // The pause between attempts; false as soon as a stop is requested.
  std::function<bool(uint32_t milliseconds)> wait_or_stop;
  const std::wstring& base_url;  // ends with "/"
  const std::string& channel;
  std::span<const PublicKey> keys;
};

// On success `manifest` and `signature` are the bytes as received. Otherwise `error` is the last cause.
[[nodiscard]] ManifestFetchStatus fetch_manifest(const ManifestFetchContext& context, std::string& manifest,
                                                 std::string& signature, std::string& error);

}  // namespace kvx
