// Puts a release in place: the only operation that changes the installed game. Every file is replaced by a rename,
// never rewritten, so that nobody sees half of one. Where a file cannot be replaced or deleted, the user is asked to
// close whatever holds it. For the worker thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/blob_store.h"
#include "engine/hash_cache.h"
#include "engine/state_file.h"
#include "manifest/manifest.h"
#include "ui/ui.h"

namespace kvx {

struct InstallContext {
  Ui& ui;
  StateFile& state;  // on the disk, says "complete=0" before the first file is changed
  HashCache& cache;
  const std::wstring& install_dir;
  const BlobStore& store;  // holds every blob that is needed, verified; they are used up
};

// Places the files that `to_place` names by their index in the manifest, and deletes the manifest's removals. False
// after the user chose to stop at a file; `reason` then names it, what was placed stays placed, and the state stays
// incomplete. Where that file is the state itself, nothing was changed on the disk, and `state` must not be saved
// later.
[[nodiscard]] bool install(const InstallContext& context, const Manifest& manifest,
                           const std::vector<uint64_t>& to_place, std::string& reason);

}  // namespace kvx
