#include "tools/kvxpublish/commands.h"

// Plain paths are enough, and <filesystem> would double the program's size.
#define CLI11_HAS_FILESYSTEM 0
#include <CLI/CLI.hpp>
#include <algorithm>

#include "foundations/paths.h"
#include "foundations/text.h"
#include "tools/kvxpublish/pack.h"
#include "tools/kvxpublish/sign.h"

namespace kvx::publish {
namespace {

// Options as they stand on the command line; paths become full ones in the requests.
struct PackOptions {
  PackRequest request;
  std::string game_folder;
  std::string site;
  uint64_t serial = 0;
  std::string launcher;
  std::string key;
};

struct SignOptions {
  std::string site;
  std::string channel = "live";
  std::string key;
};

std::wstring given_path(const std::string& path) {
  std::wstring wide = to_wide(path);
  std::ranges::replace(wide, L'/', L'\\');
  return wide.empty() ? wide : full_path(wide);
}

std::string line(const std::string& name, const std::string& value) { return name + "=" + value + "\n"; }

// Names a file or folder; an empty text would quietly mean the current folder.
CLI::Option* add_path_option(CLI::App& command, const std::string& name, std::string& value,
                             const std::string& description) {
  return command.add_option(name, value, description)->check([](const std::string& text) {
    return std::string(text.empty() ? "the path is empty" : "");
  });
}

CLI::Option* add_pack_options(CLI::App& command, PackOptions& options) {
  PackRequest& request = options.request;
  add_path_option(command, "GAME_DIR", options.game_folder, "The folder of the game; all files in it are packed")
      ->required();
  add_path_option(command, "--out", options.site, "The site's folder; it is made when it is missing")
      ->required()
      ->type_name("SITE");
  command.add_option("--channel", request.channel, "The release channel, for example live or test")
      ->required()
      ->type_name("C");
  command.add_option("--version", request.version, "The release's version, one to four numbers with dots")
      ->required()
      ->type_name("V");
  command.add_option("--exe", request.exe, "The program to start, relative to GAME_DIR")->required()->type_name("P");
  CLI::Option* serial = command.add_option("--serial", options.serial,
                                           "The release's number; by default one more than the published one");
  serial->type_name("N");
  command.add_option("--arg", request.args, "An argument for the program, as --arg=A; may be repeated")
      ->type_name("A")
      ->expected(1)
      ->take_all();
  command.add_option("--notes", request.notes, "Release notes, for the launcher's log")->type_name("T");
  command.add_option("--min-free-disk", request.min_free_disk, "Bytes of free disk to ask for beside the download")
      ->type_name("N");
  command.add_option("--remove", request.remove, "A file of older releases to delete; may be repeated")
      ->type_name("P")
      ->expected(1)
      ->take_all();
  CLI::Option* launcher =
      add_path_option(command, "--launcher", options.launcher, "A launcher that replaces older ones")->type_name("EXE");
  CLI::Option* launcher_version =
      command.add_option("--launcher-version", request.launcher_version, "That launcher's version")->type_name("V");
  launcher->needs(launcher_version);
  launcher_version->needs(launcher);
  add_path_option(command, "--key", options.key, "Sign with this private key, an unencrypted P-256 PEM file")
      ->type_name("PEM");
  command.footer(
      "Example:\n"
      "  kvxpublish pack build\\game --out site --channel live --version 1.2 --exe bin/game.exe --key primary.pem");
  return serial;
}

void add_sign_options(CLI::App& command, SignOptions& options) {
  add_path_option(command, "SITE", options.site, "The site's folder")->required();
  add_path_option(command, "--key", options.key, "The private key, an unencrypted P-256 PEM file")
      ->required()
      ->type_name("PEM");
  command.add_option("--channel", options.channel, "The release channel")->type_name("C")->capture_default_str();
  command.footer("Example:\n  kvxpublish sign site --key primary.pem");
}

bool run_pack(PackOptions& options, bool serial_given, CommandOutput& output, Failure& failure) {
  PackRequest& request = options.request;
  request.game_folder = given_path(options.game_folder);
  request.site = given_path(options.site);
  request.launcher = given_path(options.launcher);
  request.key = given_path(options.key);
  if (serial_given) request.serial = options.serial;
  PackSummary summary;
  if (!pack(request, summary, failure)) return false;
  output.data = line("channel", request.channel) + line("version", request.version) +
                line("serial", std::to_string(summary.serial)) + line("files", std::to_string(summary.file_count)) +
                line("bytes", std::to_string(summary.total_bytes)) +
                line("added_files", std::to_string(summary.added_count)) +
                line("added_bytes", std::to_string(summary.added_bytes));
  if (summary.key_identifier.empty()) {
    output.messages = "The release is not signed yet, and launchers refuse it until it is: kvxpublish sign \"" +
                      options.site + "\" --channel " + request.channel + " --key PEM\n";
  } else {
    output.data += line("key", summary.key_identifier);
  }
  return true;
}

bool run_sign(const SignOptions& options, CommandOutput& output, Failure& failure) {
  std::string key_identifier;
  if (!sign_site(given_path(options.site), options.channel, given_path(options.key), key_identifier, failure)) {
    return false;
  }
  output.data = line("channel", options.channel) + line("key", key_identifier);
  return true;
}

}  // namespace

int run_command(std::vector<std::string> arguments, CommandOutput& output) {
  CLI::App app("Makes releases of a game that KVX Launcher installs.", "kvxpublish");
  app.require_subcommand(1);
  app.footer(
      "Exit codes: 0 done, 1 failed, 2 usage, 3 launchers would refuse it, 6 key or signature.\n"
      "Each command has a --help of its own.");
  PackOptions pack_options;
  SignOptions sign_options;
  CLI::App* pack_command = app.add_subcommand("pack", "Turn a game's folder into a release on a site");
  CLI::App* sign_command = app.add_subcommand("sign", "Sign the release that a site publishes");
  const CLI::Option* serial = add_pack_options(*pack_command, pack_options);
  add_sign_options(*sign_command, sign_options);

  try {
    std::ranges::reverse(arguments);  // as CLI11 takes them
    app.parse(std::move(arguments));
  } catch (const CLI::CallForHelp&) {
    const CLI::App* asked = pack_command->parsed() ? pack_command : sign_command->parsed() ? sign_command : &app;
    output.data = asked == &app ? app.help() : asked->help(app.get_name());
    return static_cast<int>(ExitCode::done);
  } catch (const CLI::ParseError& error) {
    output.messages = std::string("kvxpublish: ") + error.what() + "; see kvxpublish --help\n";
    return static_cast<int>(ExitCode::usage);
  }

  Failure failure;
  const bool done = pack_command->parsed() ? run_pack(pack_options, serial->count() > 0, output, failure)
                                           : run_sign(sign_options, output, failure);
  if (done) return static_cast<int>(ExitCode::done);
  output.data.clear();
  output.messages = "kvxpublish: " + failure.text + "\n";
  return static_cast<int>(failure.code);
}

}  // namespace kvx::publish
