// A publisher's keys on NIST P-256 as PEM files, in the forms that openssl writes.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "manifest/built_in_keys.h"

namespace kvx::publish {

using PublicPoint = std::array<uint8_t, 64>;  // X then Y, each 32 bytes big-endian

struct PrivateKey {
  std::array<uint8_t, 32> scalar{};  // big-endian
  PublicPoint public_point{};
};

// PKCS#8 ("BEGIN PRIVATE KEY") or SEC 1 ("BEGIN EC PRIVATE KEY"), not encrypted. On failure returns false, and `error`
// says what is wrong with the text.
[[nodiscard]] bool read_private_key(std::string_view pem, PrivateKey& key, std::string& error);

// The public point of a private key, or of a public one ("BEGIN PUBLIC KEY").
[[nodiscard]] bool read_public_point(std::string_view pem, PublicPoint& point, std::string& error);

// PKCS#8.
[[nodiscard]] std::string private_key_pem(const PrivateKey& key);

// SubjectPublicKeyInfo, as bytes and as PEM.
[[nodiscard]] std::string public_key_der(const PublicPoint& point);
[[nodiscard]] std::string public_key_pem(const PublicPoint& point);

// The public half under the customary identifier, the first 8 bytes of SHA-256 over X then Y. False when SHA-256 is not
// available.
[[nodiscard]] bool public_half(const PublicPoint& point, PublicKey& half);

}  // namespace kvx::publish
