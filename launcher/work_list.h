// What one update has to do, worked out before anything is changed. For the worker thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/blob_download.h"
#include "foundations/stop_signal.h"
#include "manifest/manifest.h"

namespace kvx {

struct WorkList {
  std::vector<uint64_t> files_to_replace;  // indices into the manifest's files
  size_t files_to_remove = 0;              // of the manifest's removals, those that exist
  std::vector<BlobJob> downloads;          // each content once, ascending by its digest text
  uint64_t download_bytes = 0;
  uint64_t staged_bytes = 0;  // of the downloads, already on disk
  uint64_t needed_bytes = 0;  // of free disk space
  bool first_install = false;
};

// How many of the manifest's removals exist. Counts only part of them after a stop.
[[nodiscard]] size_t count_removable(const Manifest& manifest, const std::wstring& install_dir, const StopSignal& stop);

// How many bytes of a blob are on disk already.
using StagedBytes = std::function<uint64_t(const std::string& hash, uint64_t size)>;

// Fills the downloads and the byte counts from `files_to_replace`.
void plan_downloads(const Manifest& manifest, const StagedBytes& staged_bytes, WorkList& work);

}  // namespace kvx
