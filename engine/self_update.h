// Replaces the running launcher when a release names a newer one: downloads it as a blob, swaps the program files, and
// starts the new launcher with the same options. A failed step is undone as far as the system lets it, and each failure
// is logged; where the previous file cannot be moved back, a copy of it or else the new launcher takes its place. The
// run goes on. The user cannot cancel while the files are swapped. For the worker thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/blob_store.h"
#include "manifest/manifest.h"
#include "ui/ui.h"

namespace kvx {

struct SelfUpdateContext {
  Ui& ui;
  const BlobStore& store;
  // Brings one blob into the store; false with the reason, also when a stop was requested.
  std::function<bool(const std::string& hash, uint64_t size, std::string& error)> download_blob;
  const std::wstring& self_path;
  const std::wstring& install_dir;
  const std::wstring& temporary;  // where a copy of the launcher may be made, in a folder of that volume
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
