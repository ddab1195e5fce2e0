#include "launcher/game_start.h"

#include <cstdint>

#include "foundations/child_process.h"
#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/text.h"
#include "manifest/managed_path.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

RunOutcome fail(Ui& ui, const std::wstring& message) {
  static_cast<void>(ui.message_box(message, style_error));
  return RunOutcome::game_not_started;
}

std::wstring game_command_line(const std::wstring& program, const std::vector<std::string>& args) {
  std::wstring line = quote_argument(program);
  for (const std::string& argument : args) line += L' ' + quote_argument(to_wide(argument));
  return line;
}

}  // namespace

RunOutcome start_game(const GameStartContext& context, const std::string& exe, const std::vector<std::string>& args) {
  if (context.no_launch) {
    log::write("--no-launch: not starting %s", exe.c_str());
    return RunOutcome::success;
  }
  const std::wstring program = context.install_dir + L'\\' + native_path(exe);
  if (!is_file(program)) return fail(context.ui, L"The game program was not found:\n" + program);
  const std::wstring command_line = game_command_line(program, args);
  context.ui.show_status(L"Starting KVX...", L"");
  uint32_t process_id = 0;
  uint32_t error = 0;
  if (!start_program(program, command_line, context.install_dir, process_id, error)) {
    const std::string words = error_text(error);
    log::write("CreateProcess failed: %s", words.c_str());
    return fail(context.ui, L"KVX could not be started:\n" + to_wide(words));
  }
  log::write("started %s (pid %lu)", to_utf8(program).c_str(), static_cast<unsigned long>(process_id));
  context.launched = true;
  return RunOutcome::success;
}

}  // namespace kvx
