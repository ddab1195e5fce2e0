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

// Tells the person when launchers of this build do not know the key.
void note_unknown_key(const std::string& key_identifier, Report& report);

// The command that looks at a site with the launcher's eyes.
[[nodiscard]] std::string verify_command(const std::string& site, const std::string& channel);

// `kvxpublish sign`.
[[nodiscard]] RunCommand define_sign(CLI::App& command);

}  // namespace kvx::publish
