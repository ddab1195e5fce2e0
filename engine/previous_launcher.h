// The files beside the launcher during a self-update, and removing what one left behind. For the worker thread.
#pragma once

#include <string>

namespace kvx {

// Where a self-update keeps the running launcher's file: "...\KVXLauncher.old.exe" for "...\KVXLauncher.exe".
[[nodiscard]] std::wstring previous_launcher_path(const std::wstring& self_path);

// Where a self-update puts the new launcher before it takes its place.
[[nodiscard]] std::wstring new_launcher_path(const std::wstring& install_dir);

// A self-update that was broken off between its moves leaves no KVXLauncher.exe. A launcher that the user then starts
// under one of the two names above copies itself there, by way of the file `temporary` on the same volume, which is gone
// afterwards. Each way it can end is logged.
void restore_missing_launcher(const std::wstring& self_path, const std::wstring& install_dir,
                              const std::wstring& temporary);

// Deletes both where they exist, but never the running launcher's own file. The previous launcher's process may take a
// moment to end: its file is tried for about ten seconds. What cannot be deleted stays for the next start.
void remove_previous_launcher(const std::wstring& self_path, const std::wstring& install_dir);

}  // namespace kvx
