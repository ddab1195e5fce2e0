#include "tools/kvxpublish/commands/digest.h"

#include <memory>

#include "foundations/text.h"
#include "manifest/sha256.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/signing.h"
#include "tools/kvxpublish/site/site.h"

namespace kvx::publish {
namespace {

struct DigestOptions {
  std::string site;
  std::string channel;
  std::string out;
};

bool write_digest(const std::string& out, const Sha256Digest& digest, Failure& failure) {
  if (out.empty()) return true;
  const fs::path path = given_path(out);
  std::string reason;
  return write_file_atomic(path, std::string(digest.begin(), digest.end()), reason) ||
         fail(ExitCode::failed, path_text(path) + ": cannot be written: " + reason, failure);
}

bool run_digest(const DigestOptions& options, const CommandContext& context, Failure& failure) {
  PublishedRelease release;
  if (!read_release_to_sign(options.site, options.channel, release, failure)) return false;
  Sha256Hasher hasher;
  Sha256Digest digest{};
  if (!hasher.update(release.manifest_bytes.data(), release.manifest_bytes.size()) || !hasher.finish(digest)) {
    return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
  }
  if (!write_digest(options.out, digest, failure)) return false;
  Report& report = context.report;
  report.add("channel", options.channel);
  report.add("version", release.manifest.version);
  report.add("serial", static_cast<uint64_t>(release.manifest.serial));
  report.add("manifest", path_text(site_paths(given_path(options.site), options.channel).manifest));
  report.add("sha256", to_hex(digest.data(), digest.size()));
  report.next_step("sign this digest with ECDSA on P-256, then: kvxpublish attach \"" + options.site + "\" --channel " +
                   options.channel +
                   " --signature FILE, and --public-keys FILE for a key that this build does not know");
  return true;
}

}  // namespace

RunCommand define_digest(CommandOptions command) {
  const auto options = std::make_shared<DigestOptions>();
  add_site_folder(command, options->site);
  add_channel_option(command, options->channel);
  command.add_path("--out", options->out, "Also write the digest's 32 bytes to this file").type_name("FILE");
  command.footer(
      "Example, with openssl in the place of a vault:\n"
      "  kvxpublish digest site --out digest.bin\n"
      "  openssl pkeyutl -sign -inkey primary.pem -in digest.bin -out signature.der\n"
      "  kvxpublish attach site --signature signature.der");
  return [options](const CommandContext& context, Failure& failure) { return run_digest(*options, context, failure); };
}

}  // namespace kvx::publish
