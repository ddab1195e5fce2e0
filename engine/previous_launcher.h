// The files beside the launcher during a self-update, and removing what one left behind. For the worker thread.
#pragma once

#include <string>

namespace kvx {

// Where a self-update keeps the running launcher's file: "...\KVXLauncher.old.exe" for "...\KVXLauncher.exe".
[[nodiscard]] std::wstring previous_launcher_path(const std::wstring& self_path);

// Where a self-update puts the new launcher before it takes its place.
[[nodiscard]] std::wstring new_launcher_path(const std::wstring& install_dir);

// Whether the launcher runs as KVXLauncher.new.exe or KVXLauncher.old.exe: a self-update that was broken off between
// its moves leaves no KVXLauncher.exe, and the user has started one of these instead.
[[nodiscard]] bool is_left_by_a_self_update(const std::wstring& self_path, const std::wstring& install_dir);

// Makes such a launcher copy itself to KVXLauncher.exe where that is missing, by way of the file `temporary` on the
// same volume, which is gone afterwards. Each way it can end is logged.
void restore_missing_launcher(const std::wstring& self_path, const std::wstring& install_dir,
                              const std::wstring& temporary);

// Deletes both where they exist, but never the running launcher's own file. The previous launcher's process may take a
// moment to end: its file is tried for about ten seconds. What cannot be deleted stays for the next start.
void remove_previous_launcher(const std::wstring& self_path, const std::wstring& install_dir);

}  // namespace kvx
