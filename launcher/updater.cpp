#include "launcher/updater.h"

#include <windows.h>

#include <utility>

#include "engine/download_pool.h"
#include "engine/installed_check.h"
#include "engine/previous_launcher.h"
#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "launcher/build_identity.h"
#include "launcher/game_start.h"
#include "launcher/offline_start.h"
#include "launcher/run_result.h"
#include "manifest/built_in_keys.h"
#include "manifest/manifest_fetch.h"
#include "net/url.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

constexpr DWORD previous_process_wait_ms = 30000;
constexpr char default_channel[] = "live";

}  // namespace

Updater::Updater(Options options, Ui& ui, RunEnvironment environment)
    : options_(std::move(options)),
      ui_(ui),
      environment_(std::move(environment)),
      stop_(ui.cancel_requested, stop_workers_),
      transfer_threads_(session_, stop_) {}

RunOutcome Updater::run() {
  if (!environment_.find_layout(layout_)) {
    return fail(RunOutcome::could_not_start, L"The launcher could not determine its own folder.");
  }
  wait_for_previous_process();
  if (const RunOutcome outcome = take_folder(); outcome != RunOutcome::success) return outcome;
  open_log();
  store_ = BlobStore(layout_.download_dir, layout_.blobs_dir);
  store_.create_folders();
  load_state();
  restore_missing_launcher(layout_.self_path, layout_.install_dir, layout_.launcher_copy);
  remove_previous_launcher(layout_.self_path, layout_.install_dir);
  if (const RunOutcome outcome = settle_channel(); outcome != RunOutcome::success) return outcome;
  if (const RunOutcome outcome = settle_server(); outcome != RunOutcome::success) return outcome;
  log::write("channel=%s server=%s", channel_.c_str(), to_utf8(base_url_).c_str());
  std::string reason;
  if (!environment_.open_session(session_, L"KVXLauncher/" + to_wide(launcher_version()), reason)) {
    return start_offline(RunOutcome::no_update_information,
                         L"The network could not be initialised (" + to_wide(reason) + L").");
  }
  ui_.allow_cancel(true);
  ui_.show_status(L"Connecting to the update server...", L"");
  return fetch_and_decide();
}

void Updater::write_result(RunOutcome outcome) {
  if (log_open_) {
    const StopSignal cancelled(ui_.cancel_requested);
    static_cast<void>(hash_cache_.save(&cancelled));
    uint32_t error = 0;
    static_cast<void>(write_file_atomic(layout_.staging_file(L"last_result.txt"),
                                        format_run_result(outcome, launched_, launcher_version(), result_message_),
                                        error, &cancelled));
    log::write("exit code %d (launched=%d)", static_cast<int>(outcome), launched_ ? 1 : 0);
    log::close();
    log_open_ = false;
  }
  lock_.release();
}

bool Updater::plan(const Manifest& manifest, std::vector<uint64_t>& to_replace) {
  const InstalledCheckContext context{ui_, stop_, hash_cache_, layout_.install_dir, options_.repair};
  return check_installed_files(context, manifest, to_replace);
}

uint64_t Updater::staged_bytes(const std::string& hash, uint64_t size) const { return store_.staged_bytes(hash, size); }

void Updater::clear_staging(const StopSignal* stop) { store_.clear_staging(stop); }

bool Updater::download_blob(const std::string& hash, uint64_t size, std::string& error) {
  return download_one(download_context(), transfer_threads_, {hash, size}, error);
}

bool Updater::wait_or_stop(uint32_t milliseconds) const { return stop_.wait_or_stop(milliseconds); }

RunOutcome Updater::fail(RunOutcome outcome, const std::wstring& message) {
  static_cast<void>(ui_.message_box(message, style_error));
  return outcome;
}

RunOutcome Updater::start_offline(RunOutcome code, const std::wstring& message) {
  if (ui_.cancel_requested) return RunOutcome::cancelled;
  result_message_ = to_utf8(message);
  const GameStartContext game{ui_, layout_.install_dir, options_.no_launch, launched_};
  return kvx::start_offline({game, layout_, state_, built_in_keys()}, code, message);
}

RunOutcome Updater::start_game(const Manifest& manifest) {
  const GameStartContext game{ui_, layout_.install_dir, options_.no_launch, launched_};
  return kvx::start_game(game, manifest.exe, manifest.args);
}

BlobDownloadContext Updater::download_context() const { return {ui_, stop_, base_url_, store_}; }

// The launcher that handed over to this one must let go of its lock and its file.
void Updater::wait_for_previous_process() const {
  if (options_.wait_pid == 0) return;
  const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, options_.wait_pid));
  if (process) WaitForSingleObject(process.get(), previous_process_wait_ms);
}

RunOutcome Updater::take_folder() {
  if (!create_folders(layout_.staging_dir)) {
    return fail(RunOutcome::install_failed,
                L"KVX cannot be installed or updated in this folder because it is not writable:\n" +
                    layout_.install_dir +
                    L"\n\nPlease move KVXLauncher.exe into a folder where you can save files (for example "
                    L"Documents\\KVX) and start it again.");
  }
  SetFileAttributesW(long_path(layout_.staging_dir).c_str(), FILE_ATTRIBUTE_HIDDEN);
  switch (lock_.acquire(layout_.staging_file(L"launcher.lock"))) {
    case InstanceLock::Result::acquired: break;
    case InstanceLock::Result::held_by_another:
      static_cast<void>(ui_.message_box(L"KVX Launcher is already running.", style_information));
      return RunOutcome::already_running;
    case InstanceLock::Result::cannot_be_created:
      return fail(RunOutcome::install_failed,
                  L"KVX cannot be updated in this folder because it is not writable:\n" + layout_.install_dir);
  }
  return RunOutcome::success;
}

void Updater::open_log() {
  log::open(long_path(layout_.staging_file(L"launcher.log")));
  log_open_ = true;
  log::write("%s install=\"%s\" self=\"%s\"%s%s", version_marker(), to_utf8(layout_.install_dir).c_str(),
             to_utf8(layout_.self_name).c_str(), options_.self_updated ? " (after self-update)" : "",
             options_.repair ? " --repair" : "");
}

void Updater::load_state() {
  state_.load(layout_.staging_file(L"state.txt"));
  hash_cache_.load(layout_.staging_file(L"hashcache.txt"));
}

RunOutcome Updater::settle_channel() {
  const bool from_command_line = !options_.channel.empty();
  channel_ = from_command_line ? to_utf8(options_.channel) : state_.get(state_key::channel).value_or(default_channel);
  if (!is_channel_name(channel_)) {
    return fail(RunOutcome::could_not_start, L"Invalid channel name: " + to_wide(channel_));
  }
  // A channel given once is remembered for later runs.
  if (from_command_line && channel_ != state_.get_or_empty(state_key::channel)) {
    state_.set(state_key::channel, channel_);
    static_cast<void>(state_.save());
  }
  return RunOutcome::success;
}

RunOutcome Updater::settle_server() {
  base_url_ = options_.base_url.empty() ? default_base_url() : options_.base_url;
  if (!base_url_.ends_with(L'/')) base_url_ += L'/';
  UrlParts parts;
  std::string reason;
  if (parse_url(base_url_, parts, reason)) return RunOutcome::success;
  return fail(RunOutcome::could_not_start,
              L"Invalid update server address:\n" + base_url_ + L"\n(" + to_wide(reason) + L")");
}

RunOutcome Updater::fetch_and_decide() {
  const ManifestFetchContext context{transfer_threads_,
                                     [this](uint32_t milliseconds) { return wait_or_stop(milliseconds); }, base_url_,
                                     channel_, built_in_keys()};
  Release release;
  std::string reason;
  const ManifestFetchStatus status = fetch_manifest(context, release.manifest_bytes, release.signature_bytes, reason);
  if (ui_.cancel_requested) return RunOutcome::cancelled;
  switch (status) {
    case ManifestFetchStatus::ok: break;
    case ManifestFetchStatus::failed:
      return start_offline(RunOutcome::no_update_information,
                           L"Could not connect to the update server.\n(" + to_wide(reason) + L")");
    case ManifestFetchStatus::not_published:
      return start_offline(
          RunOutcome::no_update_information,
          L"No game version is published on the update server for channel \"" + to_wide(channel_) + L"\".");
    case ManifestFetchStatus::untrusted:
      return start_offline(RunOutcome::untrusted_manifest,
                           L"The update information from the server failed the security check (" + to_wide(reason) +
                               L") and was ignored.");
  }
  return decide(release);
}

}  // namespace kvx
