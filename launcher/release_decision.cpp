#include <algorithm>
#include <cstdlib>
#include <optional>

#include "engine/previous_launcher.h"
#include "engine/self_update.h"
#include "foundations/display_format.h"
#include "foundations/log.h"
#include "foundations/text.h"
#include "launcher/build_identity.h"
#include "launcher/updater.h"
#include "manifest/json.h"
#include "manifest/managed_path.h"
#include "manifest/manifest.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

bool refuse(std::wstring text, std::wstring& refusal) {
  refusal = std::move(text);
  return false;
}

bool read_document(const std::string& text, JsonDocument& document, std::wstring& refusal) {
  std::string reason;
  if (parse_json(text, document, reason)) {
    if (document.root().is_object()) return true;
    reason = "manifest is not a JSON object";
  }
  return refuse(L"The update information from the server could not be read (" + to_wide(reason) + L").", refusal);
}

struct Identity {
  std::string channel;
  int64_t serial = 0;
};

// A look at the few members that say whose manifest this is, before the whole is validated.
bool read_identity(const JsonValue& root, Identity& identity, std::wstring& refusal) {
  const JsonValue none{};
  const auto member = [&](std::string_view name) -> const JsonValue& {
    const JsonValue* found = root.find_member(name);
    return found == nullptr ? none : *found;
  };
  const std::optional<std::string_view> channel = member("channel").string();
  const std::optional<int64_t> serial = member("serial").integer();
  if (member("product").string() != "KVX" || !channel || !serial) {
    return refuse(L"The update information from the server is not for KVX.", refusal);
  }
  identity = {std::string(*channel), *serial};
  return true;
}

bool is_for_channel(const Identity& identity, const std::string& channel, std::wstring& refusal) {
  if (identity.channel == channel) return true;
  return refuse(L"The update information from the server is for channel \"" + to_wide(identity.channel) +
                    L"\", not \"" + to_wide(channel) + L"\".",
                refusal);
}

bool read_launcher(const JsonValue& root, LauncherEntry& launcher, std::wstring& refusal) {
  std::string reason;
  if (read_launcher_entry(root, launcher, reason)) return true;
  return refuse(L"The update information is invalid (" + to_wide(reason) + L").", refusal);
}

bool read_whole_manifest(const JsonValue& root, const std::wstring& own_name, Manifest& manifest,
                         std::wstring& refusal) {
  std::string reason;
  if (read_manifest(root, own_name, manifest, reason)) return true;
  return refuse(L"The update information from the server was rejected (" + to_wide(reason) + L").", refusal);
}

void log_manifest(const Manifest& manifest) {
  log::write("manifest: version %s serial %lld, %u files, %u removals, exe %s", manifest.version.c_str(),
             manifest.serial, static_cast<unsigned>(manifest.files.size()),
             static_cast<unsigned>(manifest.remove.size()), manifest.exe.c_str());
  if (!manifest.notes.empty()) log::write("notes: %s", manifest.notes.c_str());
}

void log_work(const Manifest& manifest, const WorkList& work) {
  log::write("update to %s: %u files to replace (%u unique, %llu bytes, %llu already staged), %u to remove",
             manifest.version.c_str(), static_cast<unsigned>(work.files_to_replace.size()),
             static_cast<unsigned>(work.downloads.size()), work.download_bytes, work.staged_bytes,
             static_cast<unsigned>(work.files_to_remove));
}

}  // namespace

RunOutcome Updater::decide(Release& release) {
  JsonDocument document;
  Identity identity;
  LauncherEntry launcher;
  std::wstring refusal;
  if (!read_document(release.manifest_bytes, document, refusal) ||  //
      !read_identity(document.root(), identity, refusal) ||         //
      !is_for_channel(identity, channel_, refusal) ||               //
      !is_not_older(identity.serial, refusal) ||                    //
      !read_launcher(document.root(), launcher, refusal)) {
    return start_offline(RunOutcome::unusable_manifest, refusal);
  }
  if (launcher.present) {
    const RunOutcome outcome = update_launcher(launcher);
    if (outcome != RunOutcome::success) return outcome;
  }
  if (!read_whole_manifest(document.root(), layout_.self_name, release.manifest, refusal)) {
    return start_offline(RunOutcome::unusable_manifest, refusal);
  }
  document = JsonDocument();  // a large manifest need not stay twice
  log_manifest(release.manifest);
  return bring_up_to(release);
}

// Protects against being moved back to an older release. An equal serial is fine.
bool Updater::is_not_older(int64_t serial, std::wstring& refusal) const {
  const std::string stored = state_.get_or_empty(state_key::accepted_serial(channel_));
  const int64_t accepted = std::strtoll(stored.c_str(), nullptr, 10);
  if (serial >= accepted) return true;
  log::write("manifest serial %lld is older than the accepted %lld", serial, accepted);
  return refuse(L"The update server offered an older release than the one already installed.", refusal);
}

RunOutcome Updater::update_launcher(const LauncherEntry& entry) {
  const SelfUpdateContext context{
      ui_,
      store_,
      [this](const std::string& hash, uint64_t size, std::string& error) { return download_blob(hash, size, error); },
      layout_.self_path,
      layout_.install_dir,
      layout_.launcher_copy,
      launcher_version(),
      options_.self_updated,
      options_.forwarded_options,
      options_.passthrough_args};
  switch (kvx::update_launcher(context, entry)) {
    case SelfUpdateResult::cancelled: return RunOutcome::cancelled;
    case SelfUpdateResult::handed_over:
      result_message_ = "launcher updated to " + entry.version;
      return RunOutcome::handed_over;
    case SelfUpdateResult::go_on: break;
  }
  return RunOutcome::success;
}

RunOutcome Updater::bring_up_to(const Release& release) {
  const Manifest& manifest = release.manifest;
  WorkList work;
  work.first_install = is_first_install(manifest);
  if (!plan(manifest, work.files_to_replace)) return RunOutcome::cancelled;
  work.files_to_remove = count_removable(manifest, layout_.install_dir, stop_);
  if (ui_.cancel_requested) return RunOutcome::cancelled;  // count_removable may have stopped early
  if (work.files_to_replace.empty() && work.files_to_remove == 0) return finish_up_to_date(release);

  store_.take_stock();
  plan_downloads(
      manifest, [this](const std::string& hash, uint64_t size) { return staged_bytes(hash, size); }, work);
  log_work(manifest, work);
  if (ui_.cancel_requested) return RunOutcome::cancelled;
  if (work.first_install && !confirm_first_install(manifest, work)) return RunOutcome::cancelled;
  if (!ensure_disk_space(work.needed_bytes)) {
    if (ui_.cancel_requested) return RunOutcome::cancelled;
    result_message_ = "not enough disk space";
    return RunOutcome::disk_full;
  }
  return carry_out(release, work);
}

bool Updater::is_first_install(const Manifest& manifest) const {
  return !state_.get(state_key::installed_version).has_value() &&
         !is_file(layout_.install_dir + L'\\' + native_path(manifest.exe));
}

RunOutcome Updater::finish_up_to_date(const Release& release) {
  const Manifest& manifest = release.manifest;
  log::write("installation matches version %s", manifest.version.c_str());
  if (state_.get_or_empty(state_key::installed_serial) != std::to_string(manifest.serial) ||
      state_.get_or_empty(state_key::complete) != "1") {
    record_installed(layout_.staging_dir, channel_, release, state_, &stop_);
  } else {
    repair_installed_copies(layout_.staging_dir, release, &stop_);
  }
  clear_staging(&stop_);
  ui_.allow_cancel(false);
  if (ui_.cancel_requested) return RunOutcome::cancelled;
  ui_.show_status(L"KVX " + to_wide(manifest.version) + L" is up to date.", L"");
  result_message_ = "up to date " + manifest.version;
  return start_game(manifest);
}

bool Updater::confirm_first_install(const Manifest& manifest, const WorkList& work) {
  std::wstring question = L"KVX is not installed in this folder yet.\n\nInstall KVX " + to_wide(manifest.version) +
                          L" into:\n" + layout_.install_dir + L"\n\nDownload: " + format_size(work.download_bytes) +
                          L"\nFree disk space needed: " + format_size(work.needed_bytes);
  if (has_other_files()) {
    question +=
        L"\n\nNote: this folder already contains other files. It is best to put KVXLauncher.exe into its own empty "
        L"folder first (for example Documents\\KVX).";
  }
  question += L"\n\nContinue?";
  return ui_.message_box(question, style_question) == button_yes;
}

bool Updater::has_other_files() const {
  const std::vector<std::wstring> names = list_folder(layout_.install_dir);
  // Under such a name this launcher may have put KVXLauncher.exe there itself.
  const bool made_another = runs_under_self_update_name(layout_.self_path, layout_.install_dir);
  return std::any_of(names.begin(), names.end(), [&](const std::wstring& name) {
    return !equals_ignore_case(name, layout_.self_name) && !equals_ignore_case(name, L".kvx_patch") &&
           !(made_another && equals_ignore_case(name, L"KVXLauncher.exe"));
  });
}

bool Updater::ensure_disk_space(uint64_t needed) {
  for (;;) {
    const uint64_t free = environment_.free_space(layout_.install_dir);
    log::write("disk: %llu bytes free, %llu needed", free, needed);
    if (free >= needed) return true;
    if (ui_.cancel_requested) return false;
    const std::wstring question = L"Not enough free disk space for the update.\n\nNeeded: " + format_size(needed) +
                                  L"\nAvailable: " + format_size(free) + L"\n\nFree some space, then press Retry.";
    if (ui_.message_box(question, style_retry) != button_retry) return false;
  }
}

}  // namespace kvx
