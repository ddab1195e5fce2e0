#include "engine/hash_cache_lines.h"

#include <algorithm>
#include <cstdlib>

#include "foundations/text.h"

namespace kvx {
namespace {

constexpr size_t digest_chars = 64;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// As strtoull reads it, whatever the text is.
uint64_t to_number(std::string_view text) {
  constexpr size_t safe_digits = 19;  // any number of so many fits
  if (text.size() > safe_digits || !std::all_of(text.begin(), text.end(), is_digit)) {
    return std::strtoull(std::string(text).c_str(), nullptr, 10);
  }
  uint64_t number = 0;
  for (const char c : text) number = number * 10 + static_cast<uint64_t>(c - '0');
  return number;
}

}  // namespace

// "digest size time path"; the path is last because it may hold blanks.
bool read_hash_cache_line(std::string_view line, HashCacheEntry& entry) {
  if (line.size() < digest_chars + 2 || line.find(' ') != digest_chars) return false;
  const size_t size_at = digest_chars + 1;
  const size_t size_end = line.find(' ', size_at);
  if (size_end == std::string_view::npos) return false;
  const size_t time_end = line.find(' ', size_end + 1);
  if (time_end == std::string_view::npos || time_end + 1 >= line.size()) return false;
  const std::string_view digest = line.substr(0, digest_chars);
  if (!is_sha256_hex(digest)) return false;

  entry.sha256 = digest;
  entry.size = to_number(line.substr(size_at, size_end - size_at));
  entry.last_write_time = to_number(line.substr(size_end + 1, time_end - size_end - 1));
  entry.path = line.substr(time_end + 1);
  return true;
}

void append_hash_cache_line(const HashCacheEntry& entry, std::string& text) {
  text += entry.sha256;
  text += ' ';
  text += std::to_string(entry.size);
  text += ' ';
  text += std::to_string(entry.last_write_time);
  text += ' ';
  text += entry.path;
  text += '\n';
}

}  // namespace kvx
