// The files beside the launcher during a self-update, and removing what one left behind. For the worker thread.
#pragma once

#include <cstdint>
#include <string>

namespace kvx {

// Where a self-update keeps the running launcher's file: "...\KVXLauncher.old.exe" for "...\KVXLauncher.exe".
[[nodiscard]] std::wstring previous_launcher_path(const std::wstring& self_path);

// Where a self-update puts the new launcher before it takes its place.
[[nodiscard]] std::wstring new_launcher_path(const std::wstring& install_dir);

// Whether the launcher runs as the file that a self-update makes, KVXLauncher.new.exe.
[[nodiscard]] bool runs_as_new_launcher(const std::wstring& self_path, const std::wstring& install_dir);

// Whether it runs as that file or as KVXLauncher.old.exe. Either may be all that a broken self-update left to start.
[[nodiscard]] bool runs_under_self_update_name(const std::wstring& self_path, const std::wstring& install_dir);

// Copies a launcher's file to `target`, which then is whole and on the disk. It is made as `temporary`, a file on the
// same volume, and moved; nothing is left there. On failure returns false with the Windows error code.
[[nodiscard]] bool copy_launcher(const std::wstring& from, const std::wstring& target, const std::wstring& temporary,
                                 uint32_t& error);

// A launcher that runs under one of the two names copies itself to KVXLauncher.exe if that is missing, and logs what
// became of it. Any other deletes a `temporary` (see copy_launcher) that a killed process left.
void restore_missing_launcher(const std::wstring& self_path, const std::wstring& install_dir,
                              const std::wstring& temporary);

// Deletes both where they exist, but never the running launcher's own file. The previous launcher's process may take a
// moment to end: its file is tried for about ten seconds. What cannot be deleted stays for the next start.
void remove_previous_launcher(const std::wstring& self_path, const std::wstring& install_dir);

}  // namespace kvx
