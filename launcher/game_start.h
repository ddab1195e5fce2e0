// Starts the game: the last step of every successful run. For the worker thread.
#pragma once

#include <string>
#include <vector>

#include "launcher/run_outcome.h"
#include "ui/ui.h"

namespace kvx {

struct GameStartContext {
  Ui& ui;
  const std::wstring& install_dir;
  bool no_launch;  // say so in the log and report success instead
  bool& launched;  // set when the game was started
};

// `exe` is a manifest path, `args` the manifest's arguments, both UTF-8. Does not wait for the game. Success, or
// game_not_started after telling the user why.
[[nodiscard]] RunOutcome start_game(const GameStartContext& context, const std::string& exe,
                                    const std::vector<std::string>& args);

}  // namespace kvx
