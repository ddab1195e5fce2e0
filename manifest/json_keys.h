// The keys of one object while it is read. Most objects are small and scanned; a large one gets a hash table, so that
// reading takes time proportional to the text, unless its keys were chosen to have the same hash.
#pragma once

#include <cstddef>
#include <vector>

#include "manifest/json_store.h"

namespace kvx {

class JsonKeys {
 public:
  // False when the object already has the key. `key` is in its place, and so are the values of the earlier ones.
  [[nodiscard]] bool add(const JsonValue& key);

  [[nodiscard]] size_t count() const { return count_; }

 private:
  [[nodiscard]] bool add_to_table(const JsonValue& key);
  [[nodiscard]] const JsonValue*& place_in_table(const JsonValue& key);
  void rebuild_table(const JsonValue& newest);

  const JsonValue* first_ = nullptr;
  size_t count_ = 0;
  std::vector<const JsonValue*> table_;  // open addressing, its size a power of two, null where free
};

}  // namespace kvx
