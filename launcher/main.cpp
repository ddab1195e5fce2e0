#include <windows.h>

#include <cstdint>

#include "launcher/options.h"
#include "launcher/process_end.h"
#include "launcher/run_outcome.h"
#include "launcher/system_libraries.h"
#include "launcher/updater.h"
#include "ui/window.h"

namespace {

// The worker thread's whole work.
int32_t run_update(const kvx::Options& options, kvx::Ui& ui) {
  kvx::Updater updater(options, ui);
  const kvx::RunOutcome outcome = updater.run();
  updater.write_result(outcome);
  if (updater.has_left_transfer_behind()) kvx::end_process(outcome);
  return static_cast<int32_t>(outcome);
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE /*previous*/, PWSTR /*command_line*/, int /*show*/) {
  kvx::use_system_libraries_only();
  kvx::end_process_on_exhausted_memory();
  const kvx::Options options = kvx::parse_command_line();
  kvx::Window window;
  if (!window.create(instance, {options.unattended, options.hidden})) {
    return static_cast<int>(kvx::RunOutcome::could_not_start);
  }
  return window.run([options](kvx::Ui& ui) { return run_update(options, ui); });
}
