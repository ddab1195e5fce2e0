// Replaces the running launcher when a release names a newer one: downloads it as a blob, swaps the program files, and
// starts the new launcher with the same options. Every failed step is undone, and the run goes on with the launcher
// that is in place. For the worker thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/blob_download.h"
#include "manifest/manifest.h"

namespace kvx {

struct SelfUpdateContext {
  const BlobDownloadContext& download;
  const std::wstring& self_path;
  const std::wstring& install_dir;
  const char* own_version;
  bool self_updated;  // this process was itself started by a self-update
  const std::vector<std::wstring>& forwarded_options;
  const std::vector<std::wstring>& passthrough_args;
};

enum class SelfUpdateResult : uint8_t {
  go_on,        // with the current launcher
  handed_over,  // the new launcher runs and waits for this process to end
  cancelled,    // by the user, during the download
};

[[nodiscard]] SelfUpdateResult update_launcher(const SelfUpdateContext& context, const LauncherEntry& entry);

}  // namespace kvx
