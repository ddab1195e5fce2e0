// The files of a game as they lie in its folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kvxpublish/failure.h"

namespace kvx::publish {

struct GameFile {
  std::string path;     // relative to the game's folder, UTF-8 with "/"
  std::wstring source;  // the full path
  uint64_t size = 0;    // bytes
  std::string sha256;   // 64 lower-case hexadecimal characters
};

// All files below a folder with their digests, ordered by path. Folders without a file leave no trace. Links are
// refused: what they point to need not be part of the game.
[[nodiscard]] bool read_game_folder(const std::wstring& folder, std::vector<GameFile>& files, Failure& failure);

// Size and digest of one file.
[[nodiscard]] bool measure_file(const std::wstring& path, uint64_t& size, std::string& sha256, Failure& failure);

}  // namespace kvx::publish
