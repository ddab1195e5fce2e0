// Signs manifests with the development keys, whose public halves are built into every test program.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kvx::test {

enum class SigningKey : uint8_t { primary, backup };

// The 80 bytes of a signature file for exactly these bytes. Signing twice gives two different, equally valid files.
[[nodiscard]] std::string sign_manifest(std::string_view manifest, SigningKey key = SigningKey::primary);

}  // namespace kvx::test
