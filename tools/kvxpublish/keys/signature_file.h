// Making signature files, each checked with the launcher's own verification before anybody sees it, and reading the
// private keys that they are made with.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/keys/pem_key.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

// A private key from a PEM file.
[[nodiscard]] bool load_key(const fs::path& path, PrivateKey& key, Failure& failure);

// A key file's text, for keys of any kind.
[[nodiscard]] bool load_key_file(const fs::path& path, std::string& pem, Failure& failure);

// The signature file of these two numbers (r then s, 32 bytes each, big-endian).
[[nodiscard]] std::string signature_file_of(const PublicKey& key, const std::array<uint8_t, 64>& r_and_s);

// The signature file for exactly these bytes. `key_identifier` is the signing key's, as 16 hexadecimal digits.
[[nodiscard]] bool sign_manifest(std::string_view manifest, const PrivateKey& key, std::string& signature_file,
                                 std::string& key_identifier, Failure& failure);

}  // namespace kvx::publish
