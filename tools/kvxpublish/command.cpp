#include "tools/kvxpublish/command.h"

#include "tools/kvxpublish/cli11.h"

namespace kvx::publish {

CLI::Option* add_path_option(CLI::App& command, const std::string& name, std::string& value,
                             const std::string& description) {
  CLI::Option* option = command.add_option(name, value, description);
  if (!name.starts_with('-')) option->type_name("");  // a positional argument's name says what it is
  return option->check([](const std::string& text) { return std::string(text.empty() ? "the path is empty" : ""); });
}

void add_site_folder(CLI::App& command, std::string& value) {
  add_path_option(command, "SITE", value, "The site's folder")->required();
}

void add_channel_option(CLI::App& command, std::string& value) {
  value = "live";
  command.add_option("--channel", value, "The release channel")->type_name("C")->capture_default_str();
}

void add_yes_option(CLI::App& command, bool& value) {
  command.add_flag("--yes", value, "Do it without asking, for scripts");
}

bool confirm(Console& console, const std::string& question, bool yes, Failure& failure) {
  if (yes) return true;
  if (!console.is_terminal()) {
    return fail(ExitCode::usage, question + " Nobody can be asked here; say so with --yes", failure);
  }
  console.write_message(question + " [y/N] ");
  std::string answer;
  if (!console.read_answer(answer)) {
    return fail(ExitCode::usage, question + " Nobody can be asked here; say so with --yes", failure);
  }
  return answer == "y" || answer == "Y" || answer == "yes" ||
         fail(ExitCode::failed, "not done: the answer was not \"y\"", failure);
}

}  // namespace kvx::publish
