#include "tools/kvxpublish/commands/pubkey.h"

#include <memory>

#include "foundations/text.h"
#include "tools/kvxpublish/keys/public_keys.h"
#include "tools/kvxpublish/keys/signature_file.h"
#include "tools/kvxpublish/keys/wipe.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {
namespace {

struct PubkeyOptions {
  std::string key;
  std::string name;
};

bool run_pubkey(const PubkeyOptions& options, const CommandContext& context, Failure& failure) {
  const fs::path path = given_path(options.key);
  std::string pem;
  if (!load_key_file(path, pem, failure)) return false;
  PublicPoint point{};
  std::string error;
  const bool read = read_public_point(pem, point, error);
  wipe(pem.data(), pem.size());
  if (!read) return fail(ExitCode::key, path_text(path) + ": the key " + error, failure);
  return report_public_key(options.name, point, context.report, failure);
}

}  // namespace

void add_key_name_option(CommandOptions command, std::string& value) {
  value = "primary";
  command.add_text("--name", value, "The key's place in the launcher")
      .one_of({"primary", "backup"})
      .type_name("NAME")
      .show_default();
}

bool report_public_key(const std::string& name, const PublicPoint& point, Report& report, Failure& failure) {
  PublicKey half{};
  const std::string print = fingerprint(point);
  if (print.empty() || !public_half(point, half)) {
    return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
  }
  report.add("identifier", identifier_text(half));
  report.add("fingerprint", print);
  report.add("public_line", public_line(name, half));
  report.next_step(
      "write the public lines of a primary and a backup key to a file, and build the launcher with "
      "-DKVX_PUBLIC_KEYS=FILE");
  return true;
}

RunCommand define_pubkey(CommandOptions command) {
  const auto options = std::make_shared<PubkeyOptions>();
  command.add_path("KEY", options->key, "A private or public key on P-256, a PEM file").required();
  add_key_name_option(command, options->name);
  command.footer("Example:\n  kvxpublish pubkey backup.pem --name backup");
  return [options](const CommandContext& context, Failure& failure) { return run_pubkey(*options, context, failure); };
}

}  // namespace kvx::publish
