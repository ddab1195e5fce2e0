#include "tests/e2e/prompt.h"

#include <utility>

#include "foundations/text.h"
#include "tests/e2e/foreign_process.h"

namespace kvx::test {
namespace {

const char* name_of(PromptIcon icon) {
  switch (icon) {
    case PromptIcon::none: return "none";
    case PromptIcon::error: return "error";
    case PromptIcon::question: return "question";
    case PromptIcon::warning: return "warning";
    case PromptIcon::information: return "information";
  }
  return "?";
}

PromptIcon icon_of(HICON shown, DWORD process_id) {
  if (shown == nullptr) return PromptIcon::none;
  for (const auto& [icon, resource] : {std::pair<PromptIcon, LPCWSTR>{PromptIcon::error, IDI_ERROR},
                                       {PromptIcon::question, IDI_QUESTION},
                                       {PromptIcon::warning, IDI_WARNING},
                                       {PromptIcon::information, IDI_INFORMATION}}) {
    if (shown == system_icon_in(process_id, resource)) return icon;
  }
  return PromptIcon::none;
}

}  // namespace

Prompt error_prompt(std::wstring text) { return {std::move(text), PromptIcon::error, {IDOK}, IDOK}; }

Prompt information_prompt(std::wstring text) { return {std::move(text), PromptIcon::information, {IDOK}, IDOK}; }

Prompt question_prompt(std::wstring text) { return {std::move(text), PromptIcon::question, {IDYES, IDNO}, IDYES}; }

Prompt retry_prompt(std::wstring text) { return {std::move(text), PromptIcon::warning, {IDRETRY, IDCANCEL}, IDRETRY}; }

Prompt confirm_prompt(std::wstring text) { return {std::move(text), PromptIcon::warning, {IDOK, IDCANCEL}, IDOK}; }

Prompt read_prompt(const MessageBoxWindow& box, DWORD process_id) {
  Prompt prompt;
  prompt.text = box.text;
  prompt.icon = icon_of(box.icon, process_id);
  prompt.buttons = box.buttons;
  prompt.default_button = box.default_button;
  prompt.caption = box.caption;
  prompt.belongs_to_window = box.owner != nullptr && box.owner == find_window(L"KVXLauncherWindow", process_id);
  return prompt;
}

bool fits(const Prompt& shown, const Prompt& expected) {
  return fits_pattern(to_utf8(shown.text), to_utf8(expected.text)) && shown.icon == expected.icon &&
         shown.buttons == expected.buttons && shown.default_button == expected.default_button &&
         shown.caption == expected.caption && shown.belongs_to_window == expected.belongs_to_window;
}

std::ostream& operator<<(std::ostream& out, const Prompt& prompt) {
  out << "\"" << to_utf8(prompt.text) << "\" (caption \"" << to_utf8(prompt.caption) << "\", icon "
      << name_of(prompt.icon) << ", buttons";
  for (const uint32_t button : prompt.buttons) out << ' ' << button;
  return out << ", default " << prompt.default_button
             << (prompt.belongs_to_window ? ", owned by the window)" : ", without owner)");
}

bool fits_pattern(const std::string& text, const std::string& pattern) {
  size_t in_text = 0;
  size_t in_pattern = 0;
  size_t star = std::string::npos;
  size_t after_star = 0;
  while (in_text < text.size()) {
    if (in_pattern < pattern.size() && pattern[in_pattern] == '*') {
      star = in_pattern++;
      after_star = in_text;
    } else if (in_pattern < pattern.size() && pattern[in_pattern] == text[in_text]) {
      ++in_pattern;
      ++in_text;
    } else if (star != std::string::npos) {
      in_pattern = star + 1;
      in_text = ++after_star;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in_pattern) == std::string::npos;
}

}  // namespace kvx::test
