// What lies in a folder, for commands that must not take a folder they cannot read for an empty one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

struct FolderEntry {
  std::wstring name;
  bool is_folder = false;
  uint64_t size = 0;             // bytes
  uint64_t last_write_time = 0;  // 100 ns units since 1601
};

// Ordered by name. A folder that is not there has no entries.
[[nodiscard]] bool list_entries(const std::wstring& folder, std::vector<FolderEntry>& entries, Failure& failure);

}  // namespace kvx::publish
