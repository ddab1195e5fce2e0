#include "launcher/offline_start.h"

#include "engine/installed_record.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/text.h"
#include "manifest/managed_path.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

constexpr char default_exe[] = "KVX.exe";

std::wstring offer(const OfflineStartContext& context, const std::wstring& message, bool manifest_usable,
                   const Manifest& installed) {
  std::wstring text = message + L"\n\n";
  text += manifest_usable ? L"The installed version " + to_wide(installed.version) + L" will be started."
                          : L"The installed game will be started.";
  if (context.state.get_or_empty(state_key::complete) != "1") {
    text +=
        L"\n\nWarning: the last update did not finish. The game may not work correctly until the next successful "
        L"update.";
  }
  return text;
}

}  // namespace

RunOutcome start_offline(const OfflineStartContext& context, RunOutcome code, const std::wstring& message) {
  Ui& ui = context.game.ui;
  const InstallLayout& layout = context.layout;
  log::write("no usable update information (code %d): %s", static_cast<int>(code), to_utf8(message).c_str());

  Manifest installed;
  std::string reason;
  const bool manifest_usable =
      load_installed_manifest(layout.staging_dir, layout.self_name, context.keys, installed, reason);
  if (!manifest_usable) {
    log::write("installed manifest unusable: %s", reason.c_str());
    installed = Manifest();
  }
  if (ui.cancel_requested) return RunOutcome::cancelled;
  const std::string exe = manifest_usable ? installed.exe : default_exe;
  if (!is_file(layout.install_dir + L'\\' + native_path(exe))) {
    static_cast<void>(ui.message_box(message +
                                         L"\n\nKVX is not installed in this folder yet, so it cannot be started.\n"
                                         L"Please check your internet connection and try again later.",
                                     style_error));
    return code;
  }
  if (ui.message_box(offer(context, message, manifest_usable, installed), style_confirm) != button_ok) {
    return RunOutcome::cancelled;
  }
  const RunOutcome started = start_game(context.game, exe, installed.args);
  return started == RunOutcome::success ? code : started;
}

}  // namespace kvx
