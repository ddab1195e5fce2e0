#include "ui/prompts.h"

namespace kvx {

uint32_t unattended_answer(uint32_t style) {
  constexpr uint32_t button_set_mask = 0x0F;
  switch (style & button_set_mask) {
    case 0: return button_ok;      // OK
    case 1: return button_ok;      // OK/Cancel
    case 2: return button_abort;   // Abort/Retry/Ignore
    case 3: return button_yes;     // Yes/No/Cancel
    case 4: return button_yes;     // Yes/No
    case 5: return button_cancel;  // Retry/Cancel
    default: return button_ok;
  }
}

}  // namespace kvx
