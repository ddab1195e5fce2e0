// Making signature files, and checking each with the launcher's own verification before anybody sees it.
#pragma once

#include <string>
#include <string_view>

#include "tools/kvxpublish/failure.h"
#include "tools/kvxpublish/pem_key.h"

namespace kvx::publish {

// A private key from a PEM file.
[[nodiscard]] bool load_key(const std::wstring& path, PrivateKey& key, Failure& failure);

// The signature file for exactly these bytes. `key_identifier` is the signing key's, as 16 hexadecimal digits.
[[nodiscard]] bool sign_manifest(std::string_view manifest, const PrivateKey& key, std::string& signature_file,
                                 std::string& key_identifier, Failure& failure);

// `kvxpublish sign`: writes the signature beside the manifest that the site publishes for a channel.
[[nodiscard]] bool sign_site(const std::wstring& site, const std::string& channel, const std::wstring& key_path,
                             std::string& key_identifier, Failure& failure);

}  // namespace kvx::publish
