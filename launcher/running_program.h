// Whether a program from the install folder runs, whose file could then not be replaced. For the worker thread.
#pragma once

#include <string>

#include "ui/ui.h"

namespace kvx {

// Finds a process, other than this one, whose program lies anywhere below the folder, also where the folder is reached
// through a drive that stands for another folder; `image_path` is its full path. Processes that cannot be looked at do
// not count.
[[nodiscard]] bool find_running_program(const std::wstring& install_dir, std::wstring& image_path);

// Asks the user to close such programs until none runs. False when the user gave up.
[[nodiscard]] bool wait_until_game_closed(Ui& ui, const std::wstring& install_dir);

}  // namespace kvx
