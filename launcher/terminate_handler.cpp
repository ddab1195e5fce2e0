#include "launcher/process_end.h"

// The library's own handler prints the name of an uncaught exception's type to a console, which this program does not
// have, brings a demangler of 40 KB for it, and ends in the runtime's message box.
namespace __gnu_cxx {

// NOLINTBEGIN(bugprone-reserved-identifier, misc-use-internal-linkage): the library names and calls it
void __verbose_terminate_handler();

void __verbose_terminate_handler() { kvx::end_process(kvx::RunOutcome::could_not_start); }
// NOLINTEND(bugprone-reserved-identifier, misc-use-internal-linkage)

}  // namespace __gnu_cxx
