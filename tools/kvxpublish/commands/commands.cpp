#include "tools/kvxpublish/commands/commands.h"

#include <algorithm>
#include <exception>

#include "tools/kvxpublish/cli/cli11.h"
#include "tools/kvxpublish/cli/command.h"
#include "tools/kvxpublish/commands/attach.h"
#include "tools/kvxpublish/commands/diff.h"
#include "tools/kvxpublish/commands/digest.h"
#include "tools/kvxpublish/commands/keygen.h"
#include "tools/kvxpublish/commands/pack_command.h"
#include "tools/kvxpublish/commands/promote.h"
#include "tools/kvxpublish/commands/prune.h"
#include "tools/kvxpublish/commands/pubkey.h"
#include "tools/kvxpublish/commands/publish.h"
#include "tools/kvxpublish/commands/rollback.h"
#include "tools/kvxpublish/commands/serve.h"
#include "tools/kvxpublish/commands/sign.h"
#include "tools/kvxpublish/commands/verify.h"

namespace kvx::publish {
namespace {

struct CommandEntry {
  const char* name;
  const char* description;
  DefineCommand define;
};

// In the order of the general help.
constexpr CommandEntry command_table[] = {
    {"keygen", "Make a key pair for signing releases", define_keygen},
    {"pubkey", "Show what a build of the launcher needs of a key", define_pubkey},
    {"pack", "Turn a game's folder into a release on a site", define_pack},
    {"sign", "Sign the release that a site publishes", define_sign},
    {"digest", "Show what a key in a vault must sign", define_digest},
    {"attach", "Add a signature that was made in a vault", define_attach},
    {"verify", "Check whether launchers would take what a site offers", define_verify},
    {"diff", "Show what a release would change for players of another", define_diff},
    {"publish", "Bring a release to the folder that a server hands out", define_publish},
    {"promote", "Offer what one channel has on another too", define_promote},
    {"rollback", "Publish an older release again, as the newest", define_rollback},
    {"prune", "Delete old releases and content that none needs", define_prune},
    {"serve", "Hand a site out over HTTPS on this machine, with nginx", define_serve},
};

struct DefinedCommand {
  CLI::App* options;
  RunCommand run;
};

constexpr const char* general_footer =
    "Exit codes: 0 done, 1 failed, 2 usage, 3 launchers would refuse it, 4 nothing to do, 5 serial conflict,\n"
    "6 key or signature. Each command has a --help of its own.";

std::vector<DefinedCommand> define_commands(CLI::App& app, bool& as_json) {
  std::vector<DefinedCommand> commands;
  for (const CommandEntry& entry : command_table) {
    CLI::App* options = app.add_subcommand(entry.name, entry.description);
    commands.push_back({options, entry.define(CommandOptions(*options))});
    options->add_flag("--json", as_json, "Write one JSON object to standard output");
  }
  return commands;
}

// Looked for before the command line is known to be right, so that what is wrong with it is told in the same form.
bool asks_for_json(const std::vector<std::string>& arguments) {
  return std::ranges::find(arguments, "--json") != arguments.end();
}

// As the library takes them: the last first. It would take the argument after "--name=" for the value that is missing.
std::vector<std::string> prepared(const std::vector<std::string>& arguments) {
  std::vector<std::string> words;
  for (const std::string& argument : arguments) {
    const bool has_empty_value = argument.starts_with("--") && argument.find('=') == argument.size() - 1;
    words.push_back(has_empty_value ? argument.substr(0, argument.size() - 1) : argument);
    if (has_empty_value) words.emplace_back();
  }
  std::ranges::reverse(words);
  return words;
}

// The library would only say that a command is missing.
bool names_unknown_command(const std::vector<std::string>& arguments) {
  return !arguments.empty() && !arguments[0].starts_with('-') &&
         std::ranges::none_of(command_table, [&](const CommandEntry& entry) { return arguments[0] == entry.name; });
}

// The library ends some help texts with a line feed, and some without.
std::string one_line_end(std::string text) {
  while (text.ends_with('\n')) text.pop_back();
  return text + '\n';
}

int end_with(const Failure& failure, bool as_json, Console& console) {
  write_failure(failure, as_json, console);
  return static_cast<int>(failure.code);
}

int run_defined(const DefinedCommand& command, bool as_json, Console& console) {
  Report report;
  Failure failure;
  if (!command.run({console, report}, failure)) return end_with(failure, as_json, console);
  write_report(report, as_json, console);
  return static_cast<int>(ExitCode::done);
}

}  // namespace

int run_command(const std::vector<std::string>& arguments, Console& console) {
  CLI::App app("Makes releases of a game that KVX Launcher installs.", "kvxpublish");
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // a path may begin with a slash
  app.footer(general_footer);
  bool as_json = false;
  const std::vector<DefinedCommand> commands = define_commands(app, as_json);
  const bool wants_json = asks_for_json(arguments);
  if (names_unknown_command(arguments)) {
    return end_with({ExitCode::usage, "there is no command \"" + arguments[0] + "\"; see kvxpublish --help"},
                    wants_json, console);
  }
  const auto is_parsed = [](const DefinedCommand& command) { return command.options->parsed(); };
  try {
    app.parse(prepared(arguments));
    return run_defined(*std::ranges::find_if(commands, is_parsed), as_json, console);
  } catch (const CLI::CallForHelp&) {
    const auto asked = std::ranges::find_if(commands, is_parsed);
    console.write_data(one_line_end(asked == commands.end() ? app.help() : asked->options->help(app.get_name())));
    return static_cast<int>(ExitCode::done);
  } catch (const CLI::ParseError& error) {
    return end_with({ExitCode::usage, std::string(error.what()) + "; see kvxpublish --help"}, wants_json, console);
  } catch (const std::exception& error) {
    return end_with({ExitCode::failed, error.what()}, wants_json, console);
  }
}

}  // namespace kvx::publish
