#include "tools/kvxpublish/commands/sign.h"

#include <memory>

#include "tools/kvxpublish/keys/signature_file.h"
#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/signing.h"
#include "tools/kvxpublish/site/site_lock.h"

namespace kvx::publish {
namespace {

struct SignOptions {
  std::string site;
  std::string channel;
  std::string key;
  std::string public_keys;
};

bool run_sign(const SignOptions& options, const CommandContext& context, Failure& failure) {
  PrivateKey key;
  std::vector<NamedKey> known_keys;
  PublishedRelease release;
  std::string signature_file;
  std::string key_identifier;
  SiteLock lock;
  if (!load_trusted_keys(options.public_keys, known_keys, failure) ||
      !load_key(given_path(options.key), key, failure) || !lock.acquire(given_path(options.site), failure) ||
      !read_release_to_sign(options.site, options.channel, release, failure) ||
      !sign_manifest(release.manifest_bytes, key, signature_file, key_identifier, failure) ||
      !place_signature(options.site, release, signature_file, failure)) {
    return false;
  }
  context.report.add("channel", options.channel);
  context.report.add("serial", static_cast<uint64_t>(release.manifest.serial));
  context.report.add("key", key_identifier);
  suggest_verify({options.site, options.channel, options.public_keys}, key_identifier, context.report);
  return true;
}

}  // namespace

RunCommand define_sign(CommandOptions command) {
  const auto options = std::make_shared<SignOptions>();
  add_site_folder(command, options->site);
  command.add_path("--key", options->key, "The private key, an unencrypted P-256 PEM file").required().type_name("PEM");
  add_channel_option(command, options->channel);
  command
      .add_path("--public-keys", options->public_keys,
                "The public keys that launchers know, a file as builds take it; by default the keys of this build")
      .type_name("FILE");
  command.footer("Example:\n  kvxpublish sign site --key primary.pem");
  return [options](const CommandContext& context, Failure& failure) { return run_sign(*options, context, failure); };
}

}  // namespace kvx::publish
