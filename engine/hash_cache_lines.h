// The text of hashcache.txt, described in docs/formats.md: a line for each file. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kvx {

struct HashCacheEntry {
  std::string sha256;            // 64 lower-case hexadecimal characters
  uint64_t size = 0;             // bytes
  uint64_t last_write_time = 0;  // 100 ns units since 1601
  std::string path;              // relative to the install folder, with backslashes
};

// False, with `entry` as it was, when the line is not well-formed. Numbers are not checked: what is not one counts as
// far as it is, or as 0.
[[nodiscard]] bool read_hash_cache_line(std::string_view line, HashCacheEntry& entry);

// With its end.
void append_hash_cache_line(const HashCacheEntry& entry, std::string& text);

}  // namespace kvx
