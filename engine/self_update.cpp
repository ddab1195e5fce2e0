#include "engine/self_update.h"

#include <windows.h>

#include "engine/previous_launcher.h"
#include "foundations/child_process.h"
#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "foundations/version_number.h"
#include "manifest/file_digest.h"

namespace kvx {
namespace {

// One self-update, used once.
class SelfUpdate {
 public:
  SelfUpdate(const SelfUpdateContext& context, const LauncherEntry& entry)
      : context_(context),
        ui_(context.ui),
        entry_(entry),
        new_path_(new_launcher_path(context.install_dir)),
        previous_path_(previous_launcher_path(context.self_path)) {}

  SelfUpdateResult run() {
    if (!is_wanted()) return SelfUpdateResult::go_on;
    std::string error;
    const bool downloaded = download(error);
    ui_.allow_cancel(false);
    const SelfUpdateResult result = downloaded ? finish() : after_failed_download(error);
    if (result == SelfUpdateResult::go_on) ui_.allow_cancel(true);
    return result;
  }

 private:
  SelfUpdateResult finish() {
    if (ui_.cancel_requested) return SelfUpdateResult::cancelled;
    return swap_files() && hand_over() ? SelfUpdateResult::handed_over : SelfUpdateResult::go_on;
  }

  [[nodiscard]] SelfUpdateResult after_failed_download(const std::string& error) const {
    if (ui_.cancel_requested) return SelfUpdateResult::cancelled;
    log::write("launcher download failed (%s); continuing with the current launcher", error.c_str());
    return SelfUpdateResult::go_on;
  }

  bool is_wanted() {
    const std::string own_digest = hash_own_file();
    log::write("launcher: running %s (%s), manifest names %s (%s)", context_.own_version, own_digest.c_str(),
               entry_.version.c_str(), entry_.sha256.c_str());
    if (compare_versions(entry_.version, context_.own_version) <= 0) return false;
    if (entry_.sha256 == own_digest) return false;
    // A delivered file that does not report the version it was named by would be fetched again and again.
    if (context_.self_updated) {
      log::write("launcher was just updated but the manifest still names a newer one: not updating again");
      return false;
    }
    // Its file is the one that a new launcher is placed at. KVXLauncher.exe updates itself when it is started.
    if (runs_as_new_launcher(context_.self_path, context_.install_dir)) {
      log::write("launcher runs as %s: not updating it", to_utf8(file_name(context_.self_path)).c_str());
      return false;
    }
    return true;
  }

  [[nodiscard]] std::string hash_own_file() const {
    std::string error;
    return hash_file(
        context_.self_path,
        [this](uint64_t bytes) {
          ui_.progress_done += bytes;
          return !ui_.cancel_requested;
        },
        error);
  }

  bool download(std::string& error) {
    ui_.show_status(L"Updating the launcher...", L"");
    ui_.start_progress(ProgressMode::transfer, entry_.size);
    context_.store.create_folders();
    const bool downloaded = context_.download_blob(entry_.sha256, entry_.size, error);
    ui_.end_progress();
    return downloaded;
  }

  // A step that fails is undone.
  bool swap_files() {
    uint32_t error = 0;
    if (!move_file(context_.store.blob_path(entry_.sha256), new_path_, error)) {
      log::write("self-update: cannot place KVXLauncher.new.exe: %s", error_text(error).c_str());
      return false;
    }
    // A running program's file can be renamed, though not deleted.
    if (!move_file(context_.self_path, previous_path_, error)) {
      log::write("self-update: cannot rename the running launcher: %s", error_text(error).c_str());
      delete_new_file();
      return false;
    }
    if (!move_file(new_path_, context_.self_path, error)) {
      log::write("self-update: cannot move the new launcher into place: %s", error_text(error).c_str());
      restore_previous_file();
      return false;
    }
    return true;
  }

  bool hand_over() {
    uint32_t process_id = 0;
    uint32_t error = 0;
    if (!start_program(context_.self_path, command_line(), context_.install_dir, process_id, error)) {
      log::write("self-update: cannot start the new launcher: %s; rolling back", error_text(error).c_str());
      roll_back();
      return false;
    }
    log::write("self-update: launcher %s installed, handing over to pid %lu", entry_.version.c_str(),
               static_cast<unsigned long>(process_id));
    return true;
  }

  [[nodiscard]] std::wstring command_line() const {
    std::wstring line = quote_argument(context_.self_path);
    line += L" --self-updated --wait-pid=" + to_wide(std::to_string(GetCurrentProcessId()));
    for (const std::wstring& option : context_.forwarded_options) line += L' ' + quote_argument(option);
    if (!context_.passthrough_args.empty()) line += L" --";
    for (const std::wstring& argument : context_.passthrough_args) line += L' ' + quote_argument(argument);
    return line;
  }

  // Each step is tried whatever became of the one before it: even where the new launcher stays in place, moving the
  // previous one over it brings the old state back.
  void roll_back() {
    uint32_t error = 0;
    if (!move_file(context_.self_path, new_path_, error)) {
      log::write("self-update: cannot move the new launcher away: %s", error_text(error).c_str());
    }
    restore_previous_file();
    if (is_file(context_.self_path)) delete_new_file();
  }

  // Where the previous file cannot be moved back, some launcher still has to stay at the own path.
  void restore_previous_file() {
    uint32_t error = 0;
    if (move_file(previous_path_, context_.self_path, error)) return;
    log::write("self-update: cannot restore the previous launcher: %s", error_text(error).c_str());
    if (!is_file(context_.self_path) && !copy_previous_file()) keep_new_file();
  }

  bool copy_previous_file() {
    uint32_t error = 0;
    if (copy_launcher(previous_path_, context_.self_path, context_.temporary, error)) {
      log::write("self-update: copied the previous launcher back");
      return true;
    }
    log::write("self-update: cannot copy the previous launcher back: %s", error_text(error).c_str());
    return false;
  }

  void keep_new_file() {
    uint32_t error = 0;
    if (move_file(new_path_, context_.self_path, error)) {
      log::write("self-update: the new launcher stays");
    } else {
      log::write("self-update: no launcher is left at its place: %s", error_text(error).c_str());
    }
  }

  void delete_new_file() {
    uint32_t error = 0;
    if (!delete_file(new_path_, error)) {
      log::write("self-update: cannot delete KVXLauncher.new.exe: %s", error_text(error).c_str());
    }
  }

  const SelfUpdateContext& context_;
  Ui& ui_;
  const LauncherEntry& entry_;
  const std::wstring new_path_;
  const std::wstring previous_path_;
};

}  // namespace

SelfUpdateResult update_launcher(const SelfUpdateContext& context, const LauncherEntry& entry) {
  return SelfUpdate(context, entry).run();
}

}  // namespace kvx
