#include "manifest/json_store.h"

#include <algorithm>

namespace kvx {

const JsonValue& JsonStore::first() const {
  static const JsonValue null{};
  return blocks_.empty() ? null : blocks_.front()->front();
}

std::string_view JsonStore::keep(std::string_view text) {
  constexpr size_t least_bytes = 4096;
  if (text.size() > text_left_) {
    text_left_ = std::max(text.size(), least_bytes);
    next_text_ = texts_.emplace_back(std::make_unique_for_overwrite<char[]>(text_left_)).get();
  }
  const std::string_view kept(next_text_, text.size());
  next_text_ = std::copy(text.begin(), text.end(), next_text_);
  text_left_ -= text.size();
  return kept;
}

void JsonStore::add_block() {
  Block& block = *blocks_.emplace_back(std::make_unique<Block>());
  if (last_ != nullptr) last_->set(JsonValue::link, {.next = block.data()});
  next_ = block.data();
  last_ = &block.back();
}

}  // namespace kvx
