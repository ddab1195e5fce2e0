// The manifest's detached signature: ECDSA on NIST P-256 (FIPS 186-4) over the SHA-256 of the manifest's exact bytes.
//
// A signature file is 80 bytes: the magic "KVXSIG01", 8 bytes that identify the key, then r and s, 32 bytes each,
// big-endian. Pure functions but for the process's SHA-256 provider; any thread.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "manifest/built_in_keys.h"

namespace kvx {

constexpr std::string_view signature_magic = "KVXSIG01";
constexpr size_t signature_file_bytes = 80;

// True when the signature is valid under one of `keys`; `key_name` is then that key's name. Otherwise false, and
// `error` is the reason.
[[nodiscard]] bool verify_manifest(std::string_view manifest, std::string_view signature_file,
                                   std::span<const PublicKey> keys, std::string& key_name, std::string& error);

}  // namespace kvx
