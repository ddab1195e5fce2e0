// How a run ended. The number is the process's exit code and stands in the result file.
#pragma once

#include <cstdint>

namespace kvx {

enum class RunOutcome : int32_t {
  success = 0,
  no_update_information = 10,
  untrusted_manifest = 20,
  unusable_manifest = 21,
  download_failed = 30,
  disk_full = 31,
  game_running = 40,
  already_running = 41,
  install_failed = 42,  // also: the folder is not writable
  handed_over = 50,     // to a newer launcher, which carries on
  cancelled = 60,
  game_not_started = 70,
  could_not_start = 99,
};

}  // namespace kvx
