#include "manifest/path_set.h"

#include <algorithm>
#include <functional>

#include "foundations/text.h"
#include "manifest/managed_path.h"

namespace kvx {
namespace {

char upper_native(char c) {
  if (c == '/') return '\\';
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

std::wstring identity_of(std::string_view path) { return path_identity(native_path(path)); }

}  // namespace

bool PathSet::add_last() {
  const std::string& path = files_.back().path;
  const uint32_t hash = hash_of(path);
  Place& place = place_of(path, hash);
  if (place.number != 0) return false;
  place = {hash, static_cast<uint32_t>(files_.size())};
  return true;
}

bool PathSet::contains(std::string_view path) { return place_of(path, hash_of(path)).number != 0; }

// Equal for paths of equal identity. That of an ASCII path, which nearly all are, is formed without the system.
uint32_t PathSet::hash_of(std::string_view path) {
  if (is_ascii(path)) {
    identity_.resize(path.size());
    std::transform(path.begin(), path.end(), identity_.begin(), upper_native);
  } else {
    identity_ = to_utf8(identity_of(path));
  }
  return static_cast<uint32_t>(std::hash<std::string>()(identity_));
}

// The place of the file with that path, or the free one where it belongs.
PathSet::Place& PathSet::place_of(std::string_view path, uint32_t hash) {
  size_t i = (uint64_t{hash} * places_.size()) >> 32;
  for (;; i = i + 1 == places_.size() ? 0 : i + 1) {
    Place& place = places_[i];
    if (place.number == 0) return place;
    if (place.hash == hash && identity_of(files_[place.number - 1].path) == identity_of(path)) return place;
  }
}

}  // namespace kvx
