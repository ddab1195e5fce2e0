#include "engine/hash_cache.h"

#include <algorithm>

#include "engine/text_lines.h"
#include "foundations/files.h"
#include "foundations/text.h"

namespace kvx {
namespace {

constexpr uint64_t largest_file_bytes = 67108864;
constexpr size_t usual_line_bytes = 128;

std::string with_backslashes(std::string_view path) {
  std::string native(path);
  std::replace(native.begin(), native.end(), '/', '\\');
  return native;
}

// The UTF-8 of to_upper(to_wide(path)), with backslashes. For ASCII, which nearly every path is, that needs no
// conversion.
void make_entry_key(std::string_view path, std::string& key) {
  if (!is_ascii(path)) {
    key = to_utf8(to_upper(to_wide(with_backslashes(path))));
    return;
  }
  key = path;
  for (char& c : key) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (c == '/') c = '\\';
  }
}

std::string entry_key(std::string_view path) {
  std::string key;
  make_entry_key(path, key);
  return key;
}

}  // namespace

void HashCache::load(const std::wstring& path) {
  path_ = path;
  entries_.clear();
  dirty_ = false;
  std::string bytes;
  if (!read_file(path, largest_file_bytes, bytes)) return;
  const std::vector<std::string_view> lines = split_lines(bytes);
  entries_.reserve(lines.size());
  for (const std::string_view line : lines) {
    HashCacheEntry entry;
    if (!read_hash_cache_line(line, entry)) continue;
    std::string key = entry_key(entry.path);
    entries_.insert_or_assign(std::move(key), std::move(entry));
  }
}

const std::string* HashCache::lookup(std::string_view path, uint64_t size, uint64_t last_write_time) const {
  make_entry_key(path, lookup_key_);
  const auto found = entries_.find(lookup_key_);
  if (found == entries_.end()) return nullptr;
  const HashCacheEntry& entry = found->second;
  return entry.size == size && entry.last_write_time == last_write_time ? &entry.sha256 : nullptr;
}

void HashCache::put(std::string_view path, uint64_t size, uint64_t last_write_time, const std::string& sha256) {
  entries_.insert_or_assign(entry_key(path), HashCacheEntry{sha256, size, last_write_time, with_backslashes(path)});
  dirty_ = true;
}

void HashCache::drop(std::string_view path) {
  if (entries_.erase(entry_key(path)) > 0) dirty_ = true;
}

bool HashCache::save(const StopSignal* stop) {
  if (!dirty_) return true;
  std::string text;
  text.reserve(entries_.size() * usual_line_bytes);
  for (const auto& [key, entry] : entries_) append_hash_cache_line(entry, text);
  uint32_t error = 0;
  if (!write_file_atomic(path_, text, error, stop)) return false;
  dirty_ = false;
  return true;
}

}  // namespace kvx
