#include "launcher/process_end.h"

#include <windows.h>

#include <new>

#include "foundations/log.h"

namespace kvx {
namespace {

// Throwing needs memory, too.
void on_no_memory() {
  log::write("out of memory");
  end_process(RunOutcome::could_not_start);
}

}  // namespace

void end_process(RunOutcome outcome) {
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(outcome));
  for (;;) Sleep(INFINITE);  // the call may return before the process ends
}

void end_process_on_exhausted_memory() { std::set_new_handler(on_no_memory); }

}  // namespace kvx
