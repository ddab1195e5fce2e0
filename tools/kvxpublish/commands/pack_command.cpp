#include "tools/kvxpublish/commands/pack_command.h"

#include <memory>

#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/pack.h"
#include "tools/kvxpublish/release/signing.h"
#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {
namespace {

// Options as they stand on the command line; paths become full ones in the request.
struct PackOptions {
  PackRequest request;
  std::string game_folder;
  std::string site;
  std::string notes;
  std::string launcher;
  std::string key;
  std::string min_free_disk = "0";
  bool is_unsigned = false;
};

void add_release_options(CommandOptions command, PackOptions& options) {
  PackRequest& request = options.request;
  command.add_text("--channel", request.channel, "The release channel, for example live or test")
      .required()
      .type_name("C");
  command.add_text("--version", request.version, "The release's version, one to four numbers with dots")
      .required()
      .type_name("V");
  command.add_text("--exe", request.exe, "The program to start, relative to GAME_DIR").required().type_name("P");
  command.add_list("--arg", request.args, "An argument for the program, as --arg=A").type_name("A");
  command.add_path("--notes", options.notes, "A text file with release notes, for the launcher's log")
      .type_name("FILE");
  command
      .add_text("--min-free-disk", options.min_free_disk,
                "Bytes of free disk to ask for beside the download, or auto for as many as an install can need")
      .type_name("N|auto");
  command.add_path("--launcher", options.launcher, "A launcher that replaces older ones").type_name("EXE");
}

void add_content_options(CommandOptions command, PackRequest& request) {
  command
      .add_list("--exclude", request.exclude,
                "Files or folders to leave out: * and ? within a name, ** across folders; without / in any folder")
      .type_name("GLOB");
  command
      .add_location("--previous", request.previous.site,
                    "The site with the release before, a folder or a URL: its files that are gone are deleted")
      .type_name("SITE");
  add_public_keys_option(command, request.public_keys);
  command.add_flag("--trust-unsigned-previous", request.previous.trust_unsigned,
                   "Take the serial and removals of a folder's release before that nobody has signed");
  command.add_list("--remove", request.remove, "One more file of older releases to delete").type_name("P");
  command
      .add_number("--serial", request.serial, 0, largest_launcher_number,
                  "The release's number; by default one more than the release before")
      .type_name("N");
}

void add_signing_options(CommandOptions command, PackOptions& options) {
  const DeclaredOption key =
      command.add_path("--key", options.key, "Sign with this private key, an unencrypted P-256 PEM file")
          .type_name("PEM");
  command.add_flag("--unsigned", options.is_unsigned, "Leave the release unsigned for now").excludes(key);
}

// A count of bytes, or nothing for "auto".
bool read_min_free_disk(const std::string& text, std::optional<uint64_t>& bytes, Failure& failure) {
  if (text == "auto") return true;
  uint64_t number = 0;
  const bool read = read_decimal(text, 0, largest_launcher_number, number);
  bytes = number;
  return read || fail(ExitCode::usage,
                      "--min-free-disk: \"" + text + "\" is neither a number of bytes from 0 to " +
                          std::to_string(largest_launcher_number) + " nor auto",
                      failure);
}

bool complete_request(PackOptions& options, Failure& failure) {
  PackRequest& request = options.request;
  if (options.key.empty() && !options.is_unsigned) {
    return fail(ExitCode::usage, "sign the release with --key PEM, or leave that for later with --unsigned", failure);
  }
  request.game_folder = given_path(options.game_folder);
  request.site = given_path(options.site);
  request.notes = given_path(options.notes);
  request.launcher = given_path(options.launcher);
  request.key = given_path(options.key);
  return read_min_free_disk(options.min_free_disk, request.min_free_disk, failure);
}

void report_pack(const PackOptions& options, const PackSummary& summary, Report& report) {
  const PackRequest& request = options.request;
  report.add("channel", request.channel);
  report.add("version", request.version);
  report.add("serial", summary.serial);
  report.add("files", summary.file_count);
  report.add("bytes", summary.total_bytes);
  report.add("removals", summary.removal_count);
  report.add("added_files", summary.added_count);
  report.add("added_bytes", summary.added_bytes);
  if (!summary.launcher_version.empty()) report.add("launcher", summary.launcher_version);
  for (const std::string& note : summary.notes) report.note(note);
  if (options.is_unsigned) {
    report.note("the release is not signed yet, and launchers refuse it until it is");
    report.next_step("kvxpublish sign \"" + options.site + "\" --channel " + request.channel + " --key PEM" +
                     public_keys_argument(request.public_keys));
  } else {
    report.add("key", summary.key_identifier);
    suggest_verify({options.site, request.channel, request.public_keys}, summary.key_identifier, report);
  }
}

bool run_pack(PackOptions& options, const CommandContext& context, Failure& failure) {
  PackSummary summary;
  if (!complete_request(options, failure) || !pack(options.request, context.console, summary, failure)) return false;
  report_pack(options, summary, context.report);
  return true;
}

}  // namespace

RunCommand define_pack(CommandOptions command) {
  const auto options = std::make_shared<PackOptions>();
  command.add_path("GAME_DIR", options->game_folder, "The folder of the game; all files in it are packed").required();
  command.add_path("--out", options->site, "The site's folder; it is made when it is missing")
      .required()
      .type_name("SITE");
  add_release_options(command, *options);
  add_content_options(command, options->request);
  add_signing_options(command, *options);
  command.footer(
      "Example:\n"
      "  kvxpublish pack build\\game --out site --channel live --version 1.2 --exe bin/game.exe "
      "--previous https://updates.example.org/patch/ --key primary.pem");
  return [options](const CommandContext& context, Failure& failure) { return run_pack(*options, context, failure); };
}

}  // namespace kvx::publish
