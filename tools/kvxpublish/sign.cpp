#include "tools/kvxpublish/sign.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <span>

#include "foundations/files.h"
#include "foundations/text.h"
#include "manifest/sha256.h"
#include "manifest/signature.h"
#include "tools/kvxpublish/ecdsa.h"
#include "tools/kvxpublish/folder_site.h"
#include "tools/kvxpublish/given_path.h"
#include "tools/kvxpublish/public_keys.h"
#include "tools/kvxpublish/site.h"
#include "tools/kvxpublish/site_lock.h"
#include "tools/kvxpublish/trust.h"

namespace kvx::publish {
namespace {

constexpr uint64_t key_file_limit_bytes = 65536;

struct SignOptions {
  std::string site;
  std::string channel;
  std::string key;
  std::string public_keys;
};

void append(std::span<const uint8_t> bytes, std::string& out) { out.append(bytes.begin(), bytes.end()); }

// Whether the public keys that count have it. A file that cannot be read has been refused before.
bool is_known(const std::string& key_identifier, const std::string& public_keys) {
  std::vector<NamedKey> keys;
  Failure ignored;
  return !load_trusted_keys(public_keys, keys, ignored) ||
         std::ranges::any_of(keys, [&](const NamedKey& key) { return identifier_text(key.key) == key_identifier; });
}

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

bool load_key_file(const std::wstring& path, std::string& pem, Failure& failure) {
  const std::string name = to_utf8(path);
  if (!is_file(path)) return fail(ExitCode::key, name + ": there is no such key file", failure);
  return read_file(path, key_file_limit_bytes, pem) ||
         fail(ExitCode::key, name + ": the key file cannot be read", failure);
}

bool load_key(const std::wstring& path, PrivateKey& key, Failure& failure) {
  std::string pem;
  if (!load_key_file(path, pem, failure)) return false;
  std::string error;
  const bool read = read_private_key(pem, key, error);
  SecureZeroMemory(pem.data(), pem.size());
  return read || fail(ExitCode::key, to_utf8(path) + ": the key " + error, failure);
}

std::string signature_file_of(const PublicKey& key, const std::array<uint8_t, 64>& r_and_s) {
  std::string file(signature_magic);
  append(key.identifier, file);
  append(r_and_s, file);
  return file;
}

bool sign_manifest(std::string_view manifest, const PrivateKey& key, std::string& signature_file,
                   std::string& key_identifier, Failure& failure) {
  PublicKey half{};
  Sha256Hasher hasher;
  Sha256Digest digest{};
  if (!public_half(key.public_point, half) || !hasher.update(manifest.data(), manifest.size()) ||
      !hasher.finish(digest)) {
    return fail(ExitCode::failed, "SHA-256 is not available on this system", failure);
  }
  std::array<uint8_t, 64> r_and_s{};
  if (!sign_digest(digest, key, r_and_s)) {
    return fail(ExitCode::key, "the system's cryptography did not take the key; its public point may not belong to it",
                failure);
  }
  signature_file = signature_file_of(half, r_and_s);
  std::string key_name;
  std::string error;
  if (!verify_manifest(manifest, signature_file, std::span(&half, 1), key_name, error)) {
    return fail(ExitCode::key,
                "the new signature does not verify (" + error + "); the key's public point may not belong to it",
                failure);
  }
  key_identifier = identifier_text(half);
  return true;
}

bool read_release_to_sign(const std::string& site_folder, const std::string& channel, PublishedRelease& release,
                          Failure& failure) {
  const auto site = open_folder_site(site_folder);
  const Search search = read_release(*site, channel, release, failure);
  if (search != Search::absent) return search == Search::found;
  return fail(ExitCode::failed,
              site->name_of(manifest_name(channel)) + ": there is nothing to sign; pack a release of channel \"" +
                  channel + "\" first, or name another with --channel",
              failure);
}

bool place_signature(const std::string& site_folder, const PublishedRelease& release, const std::string& signature_file,
                     Failure& failure) {
  SiteWriter writer(site_paths(given_path(site_folder), release.manifest.channel));
  return writer.prepare(failure) && writer.publish(static_cast<uint64_t>(release.manifest.serial),
                                                   release.manifest_bytes, signature_file, failure);
}

void suggest_verify(const NextLook& look, const std::string& key_identifier, Report& report) {
  const bool known = is_known(key_identifier, look.public_keys);
  if (!known) {
    const std::string who =
        look.public_keys.empty() ? "the launcher of this build" : "a launcher with the keys in " + look.public_keys;
    report.note(who + " does not know key " + key_identifier + "; only launchers built with it take the release");
  }
  report.next_step("kvxpublish verify \"" + look.site + "\" --channel " + look.channel +
                   (known ? public_keys_argument(look.public_keys) : " --public-keys FILE"));
}

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
