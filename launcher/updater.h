// One update pass: from finding out where the launcher is installed to starting the game. It lives for one run, on the
// worker thread, and owns everything the run works with. The steps stand in three files: updater.cpp has the frame,
// release_decision.cpp what becomes of a verified manifest, update_phases.cpp the download and the install.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "engine/blob_download.h"
#include "engine/blob_store.h"
#include "engine/hash_cache.h"
#include "engine/installed_record.h"
#include "engine/state_file.h"
#include "foundations/files.h"
#include "foundations/stop_signal.h"
#include "launcher/install_layout.h"
#include "launcher/instance_lock.h"
#include "launcher/options.h"
#include "launcher/run_outcome.h"
#include "launcher/work_list.h"
#include "net/http_session.h"
#include "net/transfer_threads.h"
#include "ui/ui.h"

namespace kvx {

// What a run takes from the process around it. Tests give it folders and failures of their own.
struct RunEnvironment {
  std::function<bool(InstallLayout& out)> find_layout = find_install_layout;
  std::function<bool(HttpSession& session, const std::wstring& user_agent, std::string& error)> open_session =
      [](HttpSession& session, const std::wstring& user_agent, std::string& error) {
        return session.open(user_agent, error);
      };
  std::function<uint64_t(const std::wstring& folder)> free_space = kvx::free_space;
};

class Updater {
 public:
  Updater(Options options, Ui& ui, RunEnvironment environment = {});

  // Once per Updater.
  [[nodiscard]] RunOutcome run();

  // Leaves the result file, when the run got as far as its log, and lets go of the log and the lock. Once, after run.
  void write_result(RunOutcome outcome);

  // Whether a cancel or a failed download has left a transfer behind that is stuck in the network or in a flush.
  // Destroying the Updater would wait for it; the program ends its process instead.
  [[nodiscard]] bool has_left_transfer_behind() const { return transfer_threads_.has_left_behind(); }

  // True when the check ran to its end; false when a stop was requested.
  [[nodiscard]] bool plan(const Manifest& manifest, std::vector<uint64_t>& to_replace);
  [[nodiscard]] uint64_t staged_bytes(const std::string& hash, uint64_t size) const;
  void clear_staging(const StopSignal* stop = nullptr);
  [[nodiscard]] bool download_blob(const std::string& hash, uint64_t size, std::string& error);
  // Pauses; false as soon as a stop is requested.
  [[nodiscard]] bool wait_or_stop(uint32_t milliseconds) const;

 private:
  // updater.cpp
  [[nodiscard]] RunOutcome fail(RunOutcome outcome, const std::wstring& message);
  [[nodiscard]] RunOutcome start_offline(RunOutcome code, const std::wstring& message);
  [[nodiscard]] RunOutcome start_game(const Manifest& manifest);
  [[nodiscard]] BlobDownloadContext download_context() const;
  void wait_for_previous_process() const;
  [[nodiscard]] RunOutcome take_folder();
  void open_log();
  void load_state();
  [[nodiscard]] RunOutcome settle_channel();
  [[nodiscard]] RunOutcome settle_server();
  [[nodiscard]] RunOutcome fetch_and_decide();

  // release_decision.cpp
  [[nodiscard]] RunOutcome decide(Release& release);
  [[nodiscard]] bool is_not_older(int64_t serial, std::wstring& refusal) const;
  [[nodiscard]] RunOutcome update_launcher(const LauncherEntry& entry);
  [[nodiscard]] RunOutcome bring_up_to(const Release& release);
  [[nodiscard]] bool is_first_install(const Manifest& manifest) const;
  [[nodiscard]] RunOutcome finish_up_to_date(const Release& release);
  [[nodiscard]] bool confirm_first_install(const Manifest& manifest, const WorkList& work);
  [[nodiscard]] bool has_other_files() const;
  [[nodiscard]] bool ensure_disk_space(uint64_t needed);

  // update_phases.cpp
  [[nodiscard]] RunOutcome carry_out(const Release& release, const WorkList& work);
  [[nodiscard]] RunOutcome download(const Manifest& manifest, const WorkList& work);
  [[nodiscard]] RunOutcome wait_for_game_to_close();
  [[nodiscard]] RunOutcome install_and_start(const Release& release, const WorkList& work);

  const Options options_;
  Ui& ui_;
  const RunEnvironment environment_;
  InstallLayout layout_;
  InstanceLock lock_;
  StateFile state_;
  HashCache hash_cache_;
  std::string channel_;
  std::wstring base_url_;  // ends with "/"
  HttpSession session_;
  BlobStore store_{L"", L""};  // of the layout, once that is known
  bool launched_ = false;
  bool log_open_ = false;
  std::string result_message_;
  std::atomic<bool> stop_workers_{false};
  const StopSignal stop_;
  TransferThreads transfer_threads_;  // last, because its threads use the members above
};

}  // namespace kvx
