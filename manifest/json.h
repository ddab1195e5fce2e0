// A strict reader of JSON (RFC 8259) for UTF-8 text. It is stricter than the RFC in three points: object keys are
// unique, strings hold no NUL, and at most 33 containers nest. Integers that fit 64 bits signed stay exact and are
// never turned into doubles; larger ones are refused. There is no writer.
//
// The reader is a pure function and may be called from any thread. It throws for exhausted memory only.
#pragma once

#include <string>
#include <string_view>

#include "manifest/json_store.h"
#include "manifest/json_value.h"

namespace kvx {

// A document refers to the text it was read from, which must outlive it unchanged. A new one is null.
class JsonDocument {
 public:
  // Stays in place when the document is moved.
  [[nodiscard]] const JsonValue& root() const { return store_.first(); }

 private:
  friend bool parse_json(std::string_view text, JsonDocument& out, std::string& error);

  JsonStore store_;
};

// On success `out` is the document. On failure returns false, `out` is null, and `error` says what is wrong and at
// which byte (counted from 0, a byte-order mark included).
[[nodiscard]] bool parse_json(std::string_view text, JsonDocument& out, std::string& error);

}  // namespace kvx
