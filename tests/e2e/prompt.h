// A message box of the launcher as its user sees it, and the five kinds that the launcher shows.
#pragma once

#include <windows.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/window_driver.h"

namespace kvx::test {

enum class PromptIcon : uint8_t { none, error, question, warning, information };

struct Prompt {
  std::wstring text;  // in an expected prompt, "*" stands for any text
  PromptIcon icon = PromptIcon::none;
  std::vector<uint32_t> buttons;  // identifiers, from left to right
  uint32_t default_button = 0;
  std::wstring caption = L"KVX Launcher";
  bool belongs_to_window = true;  // owned by the progress window
};

[[nodiscard]] Prompt error_prompt(std::wstring text);
[[nodiscard]] Prompt information_prompt(std::wstring text);
[[nodiscard]] Prompt question_prompt(std::wstring text);  // Yes, No
[[nodiscard]] Prompt retry_prompt(std::wstring text);     // Retry, Cancel
[[nodiscard]] Prompt confirm_prompt(std::wstring text);   // OK, Cancel

[[nodiscard]] Prompt read_prompt(const MessageBoxWindow& box, DWORD process_id);

// Everything equal, the text by its pattern.
[[nodiscard]] bool fits(const Prompt& shown, const Prompt& expected);
std::ostream& operator<<(std::ostream& out, const Prompt& prompt);

// The whole of `text` fits `pattern`, in which "*" stands for any text, also for none.
[[nodiscard]] bool fits_pattern(const std::string& text, const std::string& pattern);

}  // namespace kvx::test
