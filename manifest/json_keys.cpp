#include "manifest/json_keys.h"

#include <functional>
#include <string_view>

namespace kvx {
namespace {

constexpr size_t most_scanned = 16;
constexpr size_t smallest_table = 64;

bool same(const JsonValue& a, const JsonValue& b) { return JsonStore::text_of(a) == JsonStore::text_of(b); }

}  // namespace

bool JsonKeys::add(const JsonValue& key) {
  if (count_++ == 0) first_ = &key;
  if (count_ > most_scanned) return add_to_table(key);
  for (const JsonValue* earlier = first_; earlier != &key; earlier = &JsonStore::key_after(*earlier)) {
    if (same(*earlier, key)) return false;
  }
  return true;
}

bool JsonKeys::add_to_table(const JsonValue& key) {
  if (count_ * 4 > table_.size() * 3) rebuild_table(key);
  const JsonValue*& place = place_in_table(key);
  if (place != nullptr) return false;
  place = &key;
  return true;
}

// The place that holds the key, or the free one where it belongs.
const JsonValue*& JsonKeys::place_in_table(const JsonValue& key) {
  const size_t mask = table_.size() - 1;
  size_t i = std::hash<std::string_view>()(JsonStore::text_of(key)) & mask;
  while (table_[i] != nullptr && !same(*table_[i], key)) i = (i + 1) & mask;
  return table_[i];
}

// Makes a larger table of all keys before the newest.
void JsonKeys::rebuild_table(const JsonValue& newest) {
  const size_t size = table_.empty() ? smallest_table : table_.size() * 2;
  table_ = std::vector<const JsonValue*>();  // freed before the larger one is made
  table_.resize(size);
  for (const JsonValue* key = first_; key != &newest; key = &JsonStore::key_after(*key)) place_in_table(*key) = key;
}

}  // namespace kvx
