// Compares the install folder with a manifest. For the worker thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/hash_cache.h"
#include "foundations/stop_signal.h"
#include "manifest/manifest.h"
#include "ui/ui.h"

namespace kvx {

struct InstalledCheckContext {
  Ui& ui;
  const StopSignal& stop;
  HashCache& cache;
  const std::wstring& install_dir;
  bool repair;  // hash every file of the right size, whatever the cache says
};

// Fills `to_replace` with the indices of the manifest's files that are missing or differ. A file whose size and
// last-write time the cache knows costs one attribute query; other files of the right size are hashed, with progress.
// The cache is saved after each of them, but not while the saves have taken more than a twentieth of the check's time;
// the digests that wait are saved as soon as they have not, and at the end. No failure of a single file ends the check:
// such a file needs replacing.
//
// False when a stop was requested; the digests found so far are then saved.
[[nodiscard]] bool check_installed_files(const InstalledCheckContext& context, const Manifest& manifest,
                                         std::vector<uint64_t>& to_replace);

}  // namespace kvx
