#include "engine/download_pool.h"
#include "engine/install.h"
#include "foundations/log.h"
#include "foundations/text.h"
#include "launcher/running_program.h"
#include "launcher/updater.h"

namespace kvx {

// The installation is changed in the last phase only, so every failure before it leaves the installed game as it was.
RunOutcome Updater::carry_out(const Release& release, const WorkList& work) {
  if (const RunOutcome outcome = download(release.manifest, work); outcome != RunOutcome::success) return outcome;
  if (const RunOutcome outcome = wait_for_game_to_close(); outcome != RunOutcome::success) return outcome;
  return install_and_start(release, work);
}

RunOutcome Updater::download(const Manifest& manifest, const WorkList& work) {
  const std::wstring what = work.first_install ? L"Downloading KVX " : L"Downloading update ";
  ui_.show_status(what + to_wide(manifest.version) + L"...", L"");
  ui_.start_progress(ProgressMode::transfer, work.download_bytes);
  std::string reason;
  if (download_all(download_context(), transfer_threads_, stop_workers_, work.downloads, reason))
    return RunOutcome::success;

  ui_.end_progress();
  if (ui_.cancel_requested) return RunOutcome::cancelled;
  log::write("download failed: %s", reason.c_str());
  result_message_ = reason;
  const bool disk_is_full = reason.find("disk is full") != std::string::npos;
  return fail(disk_is_full ? RunOutcome::disk_full : RunOutcome::download_failed,
              L"The update could not be downloaded:\n" + to_wide(reason) +
                  L"\n\nThe installed files were not changed. Please try again later.");
}

RunOutcome Updater::wait_for_game_to_close() {
  ui_.allow_cancel(false);
  ui_.end_progress();
  if (ui_.cancel_requested) return RunOutcome::cancelled;
  ui_.show_status(L"Waiting for KVX to close...", L"");
  if (wait_until_game_closed(ui_, layout_.install_dir)) return RunOutcome::success;
  result_message_ = "KVX is running";
  return RunOutcome::game_running;
}

RunOutcome Updater::install_and_start(const Release& release, const WorkList& work) {
  const Manifest& manifest = release.manifest;
  const InstallContext context{ui_, state_, hash_cache_, layout_.install_dir, store_};
  std::string reason;
  const bool installed = install(context, manifest, work.files_to_replace, reason);
  ui_.end_progress();
  if (!installed) {
    result_message_ = reason;
    return fail(RunOutcome::install_failed, L"The update could not be installed:\n" + to_wide(reason) +
                                                L"\n\nStart the launcher again to finish the update.");
  }
  record_installed(layout_.staging_dir, channel_, release, state_);
  clear_staging();
  log::write("update to %s complete", manifest.version.c_str());
  result_message_ = "updated to " + manifest.version;
  return start_game(manifest);
}

}  // namespace kvx
