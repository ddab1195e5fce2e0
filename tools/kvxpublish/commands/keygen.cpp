#include "tools/kvxpublish/commands/keygen.h"

#include <memory>

#include "tools/kvxpublish/commands/pubkey.h"
#include "tools/kvxpublish/keys/ecdsa.h"
#include "tools/kvxpublish/keys/signature_file.h"
#include "tools/kvxpublish/keys/wipe.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/folders.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {
namespace {

struct KeygenOptions {
  std::string folder;
  std::string name;
};

// Never an existing file: a private key that is overwritten is lost.
bool write_new_file(const fs::path& path, const std::string& bytes, NewFileRights rights, Failure& failure) {
  bool exists = false;
  std::string reason;
  if (write_new_file(path, bytes, rights, exists, reason)) return true;
  return exists ? fail(ExitCode::failed,
                       path_text(path) + ": is there already and is never overwritten; name another folder", failure)
                : fail(ExitCode::failed, path_text(path) + ": cannot be written: " + reason, failure);
}

// A pair that has shown that it signs.
bool make_key(PrivateKey& key, Failure& failure) {
  if (!generate_key(key)) return fail(ExitCode::key, "the system's cryptography cannot make a key", failure);
  std::string signature_file;
  std::string key_identifier;
  return sign_manifest("trial", key, signature_file, key_identifier, failure);
}

bool write_files(const fs::path& folder, const PrivateKey& key, Failure& failure) {
  const fs::path private_path = folder / "private_key.pem";
  const fs::path public_path = folder / "public_key.pem";
  if (!write_new_file(private_path, private_key_pem(key), NewFileRights::owner_only, failure)) return false;
  if (write_new_file(public_path, public_key_pem(key.public_point), NewFileRights::usual, failure)) return true;
  discard_file(private_path);
  return false;
}

// Both files or nothing, the folder included.
bool write_pair(const fs::path& folder, const PrivateKey& key, Failure& failure) {
  std::vector<fs::path> made;
  if (make_folders(folder, made, failure) && write_files(folder, key, failure)) return true;
  remove_empty_folders(made);
  return false;
}

bool run_keygen(const KeygenOptions& options, const CommandContext& context, Failure& failure) {
  const fs::path folder = given_path(options.folder);
  PrivateKey key;
  const bool done = make_key(key, failure) && write_pair(folder, key, failure);
  wipe(key.scalar.data(), key.scalar.size());
  if (!done) return false;
  context.report.add("private_key", path_text(folder / "private_key.pem"));
  context.report.add("public_key", path_text(folder / "public_key.pem"));
  return report_public_key(options.name, key.public_point, context.report, failure);
}

}  // namespace

RunCommand define_keygen(CommandOptions command) {
  const auto options = std::make_shared<KeygenOptions>();
  command.add_path("--out", options->folder, "The folder for the two files; it is made when it is missing")
      .required()
      .type_name("DIR");
  add_key_name_option(command, options->name);
  command.footer("Example:\n  kvxpublish keygen --out keys/primary");
  return [options](const CommandContext& context, Failure& failure) { return run_keygen(*options, context, failure); };
}

}  // namespace kvx::publish
