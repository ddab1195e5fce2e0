#include "tools/kvxpublish/commands/attach.h"

#include <array>
#include <memory>
#include <span>
#include <vector>

#include "foundations/text.h"
#include "manifest/signature.h"
#include "tools/kvxpublish/keys/der.h"
#include "tools/kvxpublish/keys/public_keys.h"
#include "tools/kvxpublish/keys/signature_file.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/signing.h"
#include "tools/kvxpublish/site/site_lock.h"

namespace kvx::publish {
namespace {

constexpr uint64_t signature_limit_bytes = 4096;

using RAndS = std::array<uint8_t, 64>;

struct AttachOptions {
  std::string site;
  std::string channel;
  std::string signature;
  std::string public_keys;
  std::string key_id;
};

Bytes as_bytes(const std::string& text) { return {reinterpret_cast<const uint8_t*>(text.data()), text.size()}; }

// What the file may mean. 64 bytes are nearly always the plain numbers, but a DER form can be as short.
std::vector<RAndS> possible_signatures(const std::string& file) {
  std::vector<RAndS> signatures;
  RAndS r_and_s{};
  if (file.size() == r_and_s.size()) {
    std::ranges::copy(as_bytes(file), r_and_s.begin());
    signatures.push_back(r_and_s);
  }
  if (read_der_signature(as_bytes(file), r_and_s)) signatures.push_back(r_and_s);
  return signatures;
}

bool load_signatures(const fs::path& path, std::vector<RAndS>& signatures, Failure& failure) {
  const std::string name = path_text(path);
  std::string file;
  if (!is_file(path)) return fail(ExitCode::key, name + ": there is no such signature file", failure);
  if (!read_file(path, signature_limit_bytes, file)) {
    return fail(ExitCode::key, name + ": the signature file cannot be read, or is larger than 4096 bytes", failure);
  }
  signatures = possible_signatures(file);
  return !signatures.empty() ||
         fail(ExitCode::key,
              name + ": is no signature on P-256: neither r and s as 64 bytes nor a DER sequence of the two", failure);
}

bool load_keys(const AttachOptions& options, std::vector<NamedKey>& keys, Failure& failure) {
  keys = built_in_named_keys();
  if (!options.public_keys.empty() && !load_public_keys(given_path(options.public_keys), keys, failure)) return false;
  if (options.key_id.empty()) return true;
  const std::string wanted = to_lower_ascii(options.key_id);
  std::erase_if(keys, [&](const NamedKey& key) { return identifier_text(key.key) != wanted; });
  return !keys.empty() ||
         fail(ExitCode::key,
              "there is no key " + wanted + " among the public keys; name the file that has it with --public-keys",
              failure);
}

std::string list_of(const std::vector<NamedKey>& keys) {
  std::string list;
  for (const NamedKey& key : keys) list += (list.empty() ? "" : ", ") + key.name + ' ' + identifier_text(key.key);
  return list;
}

// The key and the reading of the file that verify over the manifest.
const NamedKey* find_signer(const std::string& manifest, const std::vector<RAndS>& signatures,
                            const std::vector<NamedKey>& keys, std::string& signature_file) {
  for (const NamedKey& key : keys) {
    for (const RAndS& r_and_s : signatures) {
      signature_file = signature_file_of(key.key, r_and_s);
      std::string key_name;
      std::string error;
      if (verify_manifest(manifest, signature_file, std::span(&key.key, 1), key_name, error)) return &key;
    }
  }
  return nullptr;
}

bool run_attach(const AttachOptions& options, const CommandContext& context, Failure& failure) {
  const fs::path signature_path = given_path(options.signature);
  std::vector<RAndS> signatures;
  std::vector<NamedKey> keys;
  PublishedRelease release;
  SiteLock lock;
  if (!load_signatures(signature_path, signatures, failure) || !load_keys(options, keys, failure) ||
      !lock.acquire(given_path(options.site), failure) ||
      !read_release_to_sign(options.site, options.channel, release, failure)) {
    return false;
  }
  std::string signature_file;
  const NamedKey* signer = find_signer(release.manifest_bytes, signatures, keys, signature_file);
  if (signer == nullptr) {
    return fail(ExitCode::key,
                path_text(signature_path) + ": the signature fits none of the keys (" + list_of(keys) +
                    "); sign the digest that \"kvxpublish digest\" shows now, or name the keys with --public-keys",
                failure);
  }
  if (!place_signature(options.site, release, signature_file, failure)) return false;
  context.report.add("channel", options.channel);
  context.report.add("serial", static_cast<uint64_t>(release.manifest.serial));
  context.report.add("key", identifier_text(signer->key));
  context.report.add("key_name", signer->name);
  suggest_verify({options.site, options.channel, options.public_keys}, identifier_text(signer->key), context.report);
  return true;
}

}  // namespace

RunCommand define_attach(CommandOptions command) {
  const auto options = std::make_shared<AttachOptions>();
  add_site_folder(command, options->site);
  command.add_path("--signature", options->signature, "The signature: 64 bytes of r and s, or DER")
      .required()
      .type_name("FILE");
  add_channel_option(command, options->channel);
  command
      .add_path("--public-keys", options->public_keys,
                "The public keys to try, a file as builds take it; by default the keys of this build")
      .type_name("FILE");
  command.add_text("--key-id", options->key_id, "Try the key with this identifier alone").type_name("HEX");
  command.footer("Example:\n  kvxpublish attach site --signature signature.der");
  return [options](const CommandContext& context, Failure& failure) { return run_attach(*options, context, failure); };
}

}  // namespace kvx::publish
