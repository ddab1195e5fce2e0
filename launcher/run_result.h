// The result file that every run leaves for scripts and support: four lines, described in docs/formats.md.
#pragma once

#include <string>

#include "launcher/run_outcome.h"

namespace kvx {

// UTF-8, cut at 511 bytes.
[[nodiscard]] std::string format_run_result(RunOutcome outcome, bool launched, const char* version,
                                            const std::string& message);

}  // namespace kvx
