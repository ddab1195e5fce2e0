// A JSON document together with the text that it refers to. Fails the test when the text is refused.
#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>

#include "manifest/json.h"

namespace kvx::test {

class ParsedJson {
 public:
  explicit ParsedJson(std::string text) : text_(std::make_unique<const std::string>(std::move(text))) {
    std::string error;
    EXPECT_TRUE(parse_json(*text_, document_, error)) << text_->substr(0, 200) << ": " << error;
  }

  [[nodiscard]] const JsonValue& operator*() const { return document_.root(); }
  [[nodiscard]] const JsonValue* operator->() const { return &document_.root(); }

 private:
  std::unique_ptr<const std::string> text_;
  JsonDocument document_;
};

}  // namespace kvx::test
