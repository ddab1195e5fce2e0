// Digests of installed files, each valid for as long as the file's size and last-write time stay the same, so that
// unchanged files need not be read. Lines of the file that are not well-formed, and a
// file that is missing or too large, count as absent.
//
// Paths are relative to the install folder, UTF-8, with backslashes in the file; "/" is taken for one. They are
// compared without regard to case. For the worker thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "engine/hash_cache_lines.h"
#include "foundations/stop_signal.h"

namespace kvx {

class HashCache {
 public:
  // Remembers the path for save.
  void load(const std::wstring& path);

  // The digest of a file that has this size (bytes) and last-write time (100 ns units since 1601), null when it is not
  // known. Valid until the cache changes.
  [[nodiscard]] const std::string* lookup(std::string_view path, uint64_t size, uint64_t last_write_time) const;

  void put(std::string_view path, uint64_t size, uint64_t last_write_time, const std::string& sha256);
  void drop(std::string_view path);

  // Writes nothing when nothing changed since the last load or save. On failure the file on disk stays as it was. A
  // program that holds the file is waited for, until `stop`, which may be null, is requested.
  [[nodiscard]] bool save(const StopSignal* stop = nullptr);

 private:
  std::wstring path_;
  std::unordered_map<std::string, HashCacheEntry> entries_;  // by upper-cased path
  mutable std::string lookup_key_;                           // one for all lookups, which then allocate nothing
  bool dirty_ = false;
};

}  // namespace kvx
