// A publisher's private key on NIST P-256, from a PEM file as openssl writes it: PKCS#8 ("BEGIN PRIVATE KEY") or SEC 1
// ("BEGIN EC PRIVATE KEY"), not encrypted.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "manifest/built_in_keys.h"

namespace kvx::publish {

struct PrivateKey {
  std::array<uint8_t, 32> scalar{};        // big-endian
  std::array<uint8_t, 64> public_point{};  // X then Y, each 32 bytes big-endian
};

// On failure returns false, and `error` says what is wrong with the text.
[[nodiscard]] bool read_private_key(std::string_view pem, PrivateKey& key, std::string& error);

// The public half under the customary identifier, the first 8 bytes of SHA-256 over X then Y. False when SHA-256 is not
// available.
[[nodiscard]] bool public_half(const PrivateKey& key, PublicKey& half);

}  // namespace kvx::publish
