// What is recorded of the installed release: verbatim copies of its manifest and signature, and its facts in the state
// file. The copies let the game be started without the update server. For the worker thread.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "engine/state_file.h"
#include "manifest/built_in_keys.h"
#include "manifest/manifest.h"

namespace kvx {

// A manifest as it was received, with what it says.
struct Release {
  std::string manifest_bytes;
  std::string signature_bytes;
  Manifest manifest;
};

// Writes the copies first and the state, with "complete" set to "1", last and in one save, so that a state that says
// complete has copies at least as new as itself wherever they could be written. Failures to write are logged only.
// Programs that hold a file are waited for, until `stop`, which may be null, is requested.
void record_installed(const std::wstring& staging_dir, const std::string& channel, const Release& release,
                      StateFile& state, const StopSignal* stop = nullptr);

// Writes each copy again that is not what `release` has, as after a failed write.
void repair_installed_copies(const std::wstring& staging_dir, const Release& release, const StopSignal* stop);

// Reads the copies back, trusting them only with a valid signature. On failure returns false and `error` is the reason.
[[nodiscard]] bool load_installed_manifest(const std::wstring& staging_dir, std::wstring_view own_name,
                                           std::span<const PublicKey> keys, Manifest& out, std::string& error);

}  // namespace kvx
