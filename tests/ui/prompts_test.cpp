#include "ui/prompts.h"

#include <gtest/gtest.h>

namespace kvx {
namespace {

TEST(UnattendedAnswer, DependsOnTheButtonSetAlone) {
  constexpr uint32_t answers[16] = {
      button_ok,      // OK
      button_ok,      // OK/Cancel
      button_abort,   // Abort/Retry/Ignore
      button_yes,     // Yes/No/Cancel
      button_yes,     // Yes/No
      button_cancel,  // Retry/Cancel
      button_ok,     button_ok, button_ok, button_ok, button_ok, button_ok, button_ok, button_ok, button_ok, button_ok,
  };
  for (uint32_t set = 0; set < 16; ++set) {
    // Without an icon, with each icon, with a second default button, and with every higher bit.
    for (const uint32_t rest : {0x00U, 0x10U, 0x20U, 0x30U, 0x40U, 0x100U, 0x10000U, 0xFFFFFFF0U}) {
      EXPECT_EQ(unattended_answer(set | rest), answers[set]) << "style " << (set | rest);
    }
  }
}

TEST(UnattendedAnswer, AcceptsConfirmationsAndNeverRetries) {
  const struct {
    uint32_t style;
    uint32_t style_value;
    uint32_t answer;
  } cases[] = {
      {style_error, 16, 1}, {style_information, 64, 1}, {style_question, 36, 6},
      {style_retry, 53, 2}, {style_confirm, 49, 1},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(item.style, item.style_value);
    EXPECT_EQ(unattended_answer(item.style), item.answer) << "style " << item.style;
  }
}

}  // namespace
}  // namespace kvx
