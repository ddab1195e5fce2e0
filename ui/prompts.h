// Message boxes as the run and the user interface agree on them: Win32 style flags and button ids by name, and the
// answers that an unattended run gives itself. Any thread.
#pragma once

#include <cstdint>

namespace kvx {

constexpr uint32_t style_error = 16;        // error icon, OK
constexpr uint32_t style_information = 64;  // information icon, OK
constexpr uint32_t style_question = 36;     // question icon, Yes/No
constexpr uint32_t style_retry = 53;        // warning icon, Retry/Cancel
constexpr uint32_t style_confirm = 49;      // warning icon, OK/Cancel

constexpr uint32_t button_ok = 1;
constexpr uint32_t button_cancel = 2;
constexpr uint32_t button_abort = 3;
constexpr uint32_t button_retry = 4;
constexpr uint32_t button_yes = 6;

// The answer of a run with nobody there: it accepts every confirmation and question, and never retries.
[[nodiscard]] uint32_t unattended_answer(uint32_t style);

}  // namespace kvx
