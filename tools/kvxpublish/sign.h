// Making signature files, and checking each with the launcher's own verification before anybody sees it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "tools/kvxpublish/command.h"
#include "tools/kvxpublish/failure.h"
#include "tools/kvxpublish/pem_key.h"
#include "tools/kvxpublish/site_reader.h"

namespace kvx::publish {

// A private key from a PEM file.
[[nodiscard]] bool load_key(const std::wstring& path, PrivateKey& key, Failure& failure);

// A key file's text, for keys of any kind.
[[nodiscard]] bool load_key_file(const std::wstring& path, std::string& pem, Failure& failure);

// The signature file of these two numbers (r then s, 32 bytes each, big-endian).
[[nodiscard]] std::string signature_file_of(const PublicKey& key, const std::array<uint8_t, 64>& r_and_s);

// The signature file for exactly these bytes. `key_identifier` is the signing key's, as 16 hexadecimal digits.
[[nodiscard]] bool sign_manifest(std::string_view manifest, const PrivateKey& key, std::string& signature_file,
                                 std::string& key_identifier, Failure& failure);

// What the site publishes on a channel and launchers would take if it were signed.
[[nodiscard]] bool read_release_to_sign(const std::string& site_folder, const std::string& channel,
                                        PublishedRelease& release, Failure& failure);

// Puts a signature file beside the published manifest, and into the history.
[[nodiscard]] bool place_signature(const std::string& site_folder, const PublishedRelease& release,
                                   const std::string& signature_file, Failure& failure);

// What the next step of a command needs to look at a release as launchers do.
struct NextLook {
  std::string site;
  std::string channel;
  std::string public_keys;  // the command's own --public-keys, empty for none
};

// After a release was signed: tells the person when launchers do not know the key, and names `verify` as the next step.
void suggest_verify(const NextLook& look, const std::string& key_identifier, Report& report);

// `kvxpublish sign`.
[[nodiscard]] RunCommand define_sign(CommandOptions command);

}  // namespace kvx::publish
