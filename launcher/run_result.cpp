#include "launcher/run_result.h"

#include <cstdio>

namespace kvx {

std::string format_run_result(RunOutcome outcome, bool launched, const char* version, const std::string& message) {
  char text[512];
  std::snprintf(text, sizeof(text), "code=%d\nlaunched=%d\nlauncher=%s\nmessage=%s\n", static_cast<int>(outcome),
                launched ? 1 : 0, version, message.c_str());
  return text;
}

}  // namespace kvx
