// Whose signatures count.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/keys/public_keys.h"

namespace kvx::publish {

// The keys in the file that the option names, or those of this build when it is empty.
[[nodiscard]] bool load_trusted_keys(const std::string& option, std::vector<NamedKey>& keys, Failure& failure);

// Whose signature a manifest bears. No signature (empty), or one of nobody's among `keys`, is a failure with code
// `key`; `signature_name` names the signature file in it.
[[nodiscard]] bool find_signer(const std::string& manifest, const std::string& signature,
                               const std::string& signature_name, const std::vector<NamedKey>& keys, NamedKey& signer,
                               Failure& failure);

}  // namespace kvx::publish
