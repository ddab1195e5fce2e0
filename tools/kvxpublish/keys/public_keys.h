// The public keys that signatures are tried with, and the text form in which a build takes them: a line of the key's
// name, a blank, its identifier as 16 lower-case hexadecimal digits, a blank, and its point as 128 of them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "manifest/built_in_keys.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/keys/pem_key.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

struct NamedKey {
  std::string name;
  PublicKey key;
};

// The identifier as 16 lower-case hexadecimal digits.
[[nodiscard]] std::string identifier_text(const PublicKey& key);

// The key's line, without its end.
[[nodiscard]] std::string public_line(const std::string& name, const PublicKey& key);

// SHA-256 of the key as SubjectPublicKeyInfo, as openssl and key services show it: 64 lower-case hexadecimal digits.
// Empty when SHA-256 is not available.
[[nodiscard]] std::string fingerprint(const PublicPoint& point);

// The keys that the launcher of this build trusts.
[[nodiscard]] std::vector<NamedKey> built_in_named_keys();

// At least one line, each ended by a line feed or CR LF; the last may do without.
[[nodiscard]] bool load_public_keys(const fs::path& path, std::vector<NamedKey>& keys, Failure& failure);

}  // namespace kvx::publish
