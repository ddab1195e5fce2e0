#include "manifest/json_store.h"

namespace kvx {

const JsonValue& JsonStore::first() const {
  static const JsonValue null{};
  return blocks_.empty() ? null : blocks_.front()->front();
}

void JsonStore::add_block() {
  Block& block = *blocks_.emplace_back(std::make_unique<Block>());
  if (last_ != nullptr) last_->set(JsonValue::link, {.next = block.data()});
  next_ = block.data();
  last_ = &block.back();
}

}  // namespace kvx
