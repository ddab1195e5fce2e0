#include "foundations/error_text.h"

#include <windows.h>

#include <gmock/gmock.h>

namespace kvx {
namespace {

using testing::EndsWith;

void expect_words_and_code(const std::string& text, uint32_t code) {
  const std::string suffix = " (error " + std::to_string(code) + ")";
  ASSERT_THAT(text, EndsWith(suffix));
  const std::string words = text.substr(0, text.size() - suffix.size());
  ASSERT_FALSE(words.empty()) << text;
  EXPECT_EQ(words.find_last_not_of("\n\r ."), words.size() - 1) << text;
}

TEST(ErrorText, IsTheSystemsTextWithoutItsFullStopAndTheCodeInParentheses) {
  for (const uint32_t code : {2U, 3U, 5U, 32U, 33U, 112U, 183U}) expect_words_and_code(error_text(code), code);
}

TEST(ErrorText, IsTheNumberAloneForACodeWithoutAText) {
  EXPECT_EQ(error_text(0xFFFFFFFF), "error 4294967295");
  EXPECT_EQ(error_text(0x2FFFFFFF), "error 805306367");
}

// In one test, because a module stays loaded.
TEST(ErrorText, AsksWinHttpOnlyWhenTheProgramHasLoadedIt) {
  ASSERT_EQ(GetModuleHandleW(L"winhttp.dll"), nullptr);
  EXPECT_EQ(error_text(12002), "error 12002");
  EXPECT_EQ(GetModuleHandleW(L"winhttp.dll"), nullptr);
  ASSERT_NE(LoadLibraryW(L"winhttp.dll"), nullptr);
  const std::string text = error_text(12002);
  if (text != "error 12002") expect_words_and_code(text, 12002);  // Wine's module has no texts
  EXPECT_EQ(error_text(0xFFFFFFFF), "error 4294967295");
}

}  // namespace
}  // namespace kvx
