// The files of a manifest by what their paths denote, to find a path that is listed twice. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "manifest/manifest.h"

namespace kvx {

// A hash table of 16 bytes for each file; it refers to the files' paths. Both functions take the same time however many
// files there are, unless their paths were chosen to have the same hash.
class PathSet {
 public:
  explicit PathSet(const std::vector<ManifestFile>& files) : files_(files) {}

  // Once, before anything else: how many files there will be at most.
  void reserve(size_t count) { places_.resize(2 * count + 1); }

  // Adds the last of the files. False when an earlier one has the same path.
  [[nodiscard]] bool add_last();

  [[nodiscard]] bool contains(std::string_view path);

 private:
  struct Place {
    uint32_t hash = 0;
    uint32_t number = 0;  // the file's index plus one; 0 where free
  };

  [[nodiscard]] uint32_t hash_of(std::string_view path);
  [[nodiscard]] Place& place_of(std::string_view path, uint32_t hash);

  const std::vector<ManifestFile>& files_;
  std::vector<Place> places_;
  std::string identity_;  // of the path that is being hashed
};

}  // namespace kvx
