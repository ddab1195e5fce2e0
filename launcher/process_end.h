// The ways this process ends other than by returning from its entry point.
#pragma once

#include "launcher/run_outcome.h"

namespace kvx {

// Ends the process at once: no other thread runs on, nothing is destroyed, and no library is asked. For a process with
// a thread that cannot be waited for, or without memory. Any thread.
[[noreturn]] void end_process(RunOutcome outcome);

// From now on, memory that cannot be had ends the process with could_not_start and a last line in the log, instead of
// the runtime's message box, which nobody may be there to close. Once, at the start.
void end_process_on_exhausted_memory();

}  // namespace kvx
