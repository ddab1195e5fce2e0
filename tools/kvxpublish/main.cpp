#include "tools/kvxpublish/commands/commands.h"
#include "tools/kvxpublish/platform/arguments.h"
#include "tools/kvxpublish/platform/system_console.h"

int main(int count, char** words) {
  kvx::publish::SystemConsole console;
  return kvx::publish::run_command(kvx::publish::program_arguments(count, words), console);
}
