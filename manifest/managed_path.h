// The one test that decides whether a path named by a manifest may be created, replaced or deleted. Manifests come from
// the network: a managed path can never leave the install folder, reach a device, or touch the player's own data, the
// launcher's state folder or the launcher itself.
//
// A manifest path is UTF-8, relative to the install folder, with "/" as its only separator. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace kvx {

// `own_name` is the launcher's own file name as it is called on disk. On refusal returns false and `error` is the
// reason, without the path; the caller adds the context.
[[nodiscard]] bool is_managed_path(std::string_view path, std::wstring_view own_name, std::string& error);

// The path with "/" turned into a backslash, as Windows takes it.
[[nodiscard]] std::wstring native_path(std::string_view path);

// Appends it to a folder's path, which keeps its memory.
void append_native_path(std::string_view path, std::wstring& folder);

// Two manifest paths name the same file exactly when these are equal: the native path, upper-cased.
[[nodiscard]] std::wstring path_identity(std::wstring_view native_path);

}  // namespace kvx
