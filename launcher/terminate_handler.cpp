#include <cstdlib>

// The library's own handler prints the name of an uncaught exception's type to a console, which this program does not
// have, and brings a demangler of 40 KB for it.
namespace __gnu_cxx {

void __verbose_terminate_handler();  // NOLINT(bugprone-reserved-identifier): the library names it

void __verbose_terminate_handler() { std::abort(); }  // NOLINT(bugprone-reserved-identifier)

}  // namespace __gnu_cxx
