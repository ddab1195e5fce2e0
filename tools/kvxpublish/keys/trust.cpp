#include "tools/kvxpublish/keys/trust.h"

#include <span>

#include "manifest/signature.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

bool load_trusted_keys(const std::string& option, std::vector<NamedKey>& keys, Failure& failure) {
  keys = built_in_named_keys();
  return option.empty() || load_public_keys(given_path(option), keys, failure);
}

bool find_signer(const std::string& manifest, const std::string& signature, const std::string& signature_name,
                 const std::vector<NamedKey>& keys, NamedKey& signer, Failure& failure) {
  if (signature.empty()) {
    return fail(ExitCode::key,
                signature_name + ": there is no signature, and launchers refuse the release without; sign it first",
                failure);
  }
  std::string key_name;
  std::string error;
  std::vector<PublicKey> public_keys;
  for (const NamedKey& key : keys) {
    if (verify_manifest(manifest, signature, std::span(&key.key, 1), key_name, error)) {
      signer = key;
      return true;
    }
    public_keys.push_back(key.key);
  }
  // Once more with all of them, for the reason that launchers would give.
  static_cast<void>(verify_manifest(manifest, signature, public_keys, key_name, error));
  return fail(ExitCode::key,
              signature_name + ": " + error +
                  "; sign the release again, or name the keys that launchers know with --public-keys",
              failure);
}

}  // namespace kvx::publish
