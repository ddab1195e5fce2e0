// Where a document's values are made and kept, one after the other as the reader meets them. They lie in blocks that
// never move: the last place of a full one is a link to the next. Memory grows with the values alone; nothing is
// copied.
#pragma once

#include <array>
#include <memory>
#include <string_view>
#include <vector>

#include "manifest/json_value.h"

namespace kvx {

class JsonStore {
 public:
  // The first value; null when there is none.
  [[nodiscard]] const JsonValue& first() const;

  // Each adds one value behind the others. Text must outlive the store.
  void add_null() { next_place().set(JsonValue::Kind::null, {}); }
  void add_boolean(bool value) { next_place().set(JsonValue::Kind::boolean, {.boolean = value}); }
  void add_integer(int64_t value) { next_place().set(JsonValue::Kind::integer, {.integer = value}); }
  void add_number(double value) { next_place().set(JsonValue::Kind::number, {.number = value}); }
  const JsonValue& add_string(std::string_view text) {
    JsonValue& value = next_place();
    value.set(JsonValue::Kind::string, {.text = text.data()}, text.size());
    return value;
  }

  // A container is begun, then what it holds is added (an object's keys as strings, each before its value), then it is
  // ended with the number of its elements or members.
  [[nodiscard]] JsonValue& begin_container() { return next_place(); }
  void end_container(JsonValue& container, JsonValue::Kind kind, size_t size) const {
    container.set(kind, {.next = next_}, size);
  }

  // The key after that of an object that is still being read.
  [[nodiscard]] static const JsonValue& key_after(const JsonValue& key) { return key.behind().behind(); }
  [[nodiscard]] static std::string_view text_of(const JsonValue& string) { return string.text(); }

  // A copy that lives as long as the store.
  [[nodiscard]] std::string_view keep(std::string_view text);

 private:
  static constexpr size_t block_values = 1024;
  using Block = std::array<JsonValue, block_values>;

  [[nodiscard]] JsonValue& next_place() {
    if (next_ == last_) add_block();
    return *next_++;
  }
  void add_block();

  std::vector<std::unique_ptr<Block>> blocks_;
  JsonValue* next_ = nullptr;
  JsonValue* last_ = nullptr;  // of the last block; never a value

  std::vector<std::unique_ptr<char[]>> texts_;
  char* next_text_ = nullptr;
  size_t text_left_ = 0;  // bytes free in the last of the texts
};

}  // namespace kvx
