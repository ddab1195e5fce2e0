// The files of a game as they lie in its folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

struct GameFile {
  std::string path;              // relative to the game's folder, UTF-8 with "/"
  fs::path source;               // the full path
  uint64_t size = 0;             // bytes
  uint64_t last_write_time = 0;  // 100 ns units since 1601
  std::string sha256;            // 64 lower-case hexadecimal characters, empty until the file was read
};

// All files below a folder as they are now, ordered by path; none is opened. Empty folders are refused, because a
// release cannot hold them, and so are links: what they point to need not be part of the game. Files and folders that a
// pattern in `exclude` matches are passed over; `unused` receives the patterns that matched nothing.
[[nodiscard]] bool list_game_folder(const fs::path& folder, const std::vector<std::string>& exclude,
                                    std::vector<GameFile>& files, std::vector<std::string>& unused, Failure& failure);

}  // namespace kvx::publish
