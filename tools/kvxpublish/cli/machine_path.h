// Paths as the other programs of this machine take them. Under Wine, a path in the form of the machine's own files
// ("\\?\unix\srv\site" or "//?/unix/srv/site") is one of theirs ("/srv/site"); any other path stays as it is. Pure
// functions; any thread.
#pragma once

#include <string>
#include <string_view>

namespace kvx::publish {

[[nodiscard]] std::string machine_path(const std::wstring& path);

// A sentence with such paths in it. A path reaches to the next quotation mark, colon and blank, or line feed.
[[nodiscard]] std::string with_machine_paths(std::string_view text);

}  // namespace kvx::publish
