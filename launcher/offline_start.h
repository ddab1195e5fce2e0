// What a run does when the update server cannot be used: it says why, and offers the installed game, trusting only the
// signed manifest that the last update left. Nothing is written to the state. For the worker thread.
#pragma once

#include <span>
#include <string>

#include "engine/state_file.h"
#include "launcher/game_start.h"
#include "launcher/install_layout.h"
#include "launcher/run_outcome.h"
#include "manifest/built_in_keys.h"

namespace kvx {

struct OfflineStartContext {
  const GameStartContext& game;
  const InstallLayout& layout;
  const StateFile& state;
  std::span<const PublicKey> keys;
};

// `code` is why there is no update and `message` says so to the user. Returns `code` when the game was started or is
// not installed, cancelled when the user declined, or the game start's own failure.
[[nodiscard]] RunOutcome start_offline(const OfflineStartContext& context, RunOutcome code,
                                       const std::wstring& message);

}  // namespace kvx
