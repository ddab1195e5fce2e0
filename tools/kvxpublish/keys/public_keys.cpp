#include "tools/kvxpublish/keys/public_keys.h"

#include <algorithm>

#include "foundations/text.h"
#include "manifest/sha256.h"
#include "tools/kvxpublish/platform/files.h"

namespace kvx::publish {
namespace {

constexpr uint64_t file_limit_bytes = 65536;

constexpr std::string_view hex_digits = "0123456789abcdef";

// Exactly as many lower-case digits as the bytes need.
bool read_hex(std::string_view text, std::span<uint8_t> bytes) {
  if (text.size() != 2 * bytes.size() || text.find_first_not_of(hex_digits) != std::string_view::npos) return false;
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<uint8_t>(hex_digits.find(text[2 * i]) << 4 | hex_digits.find(text[2 * i + 1]));
  }
  return true;
}

bool read_line(std::string_view line, NamedKey& key) {
  const size_t first_blank = line.find(' ');
  if (first_blank == 0 || first_blank == std::string_view::npos) return false;
  const size_t second_blank = line.find(' ', first_blank + 1);
  if (second_blank == std::string_view::npos) return false;
  key.name = line.substr(0, first_blank);
  key.key.name = "listed key";
  return read_hex(line.substr(first_blank + 1, second_blank - first_blank - 1), key.key.identifier) &&
         read_hex(line.substr(second_blank + 1), key.key.public_point);
}

}  // namespace

std::string identifier_text(const PublicKey& key) { return to_hex(key.identifier.data(), key.identifier.size()); }

std::string public_line(const std::string& name, const PublicKey& key) {
  return name + ' ' + identifier_text(key) + ' ' + to_hex(key.public_point.data(), key.public_point.size());
}

std::string fingerprint(const PublicPoint& point) {
  const std::string der = public_key_der(point);
  Sha256Hasher hasher;
  return hasher.update(der.data(), der.size()) ? hasher.finish_text() : std::string();
}

std::vector<NamedKey> built_in_named_keys() {
  std::vector<NamedKey> keys;
  for (const PublicKey& key : built_in_keys()) keys.push_back({key.name, key});
  return keys;
}

bool load_public_keys(const fs::path& path, std::vector<NamedKey>& keys, Failure& failure) {
  const std::string file = path_text(path);
  std::string text;
  if (!is_file(path)) return fail(ExitCode::key, file + ": there is no such key file", failure);
  if (!read_file(path, file_limit_bytes, text)) {
    return fail(ExitCode::key, file + ": the key file cannot be read", failure);
  }
  keys.clear();
  for (std::string_view rest = text; !rest.empty();) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    NamedKey key{};
    if (!read_line(line, key)) {
      return fail(ExitCode::key,
                  file + ": line " + std::to_string(keys.size() + 1) +
                      " is not a name, a blank, 16 lower-case hexadecimal digits, a blank and 128 of them",
                  failure);
    }
    keys.push_back(std::move(key));
  }
  return !keys.empty() || fail(ExitCode::key, file + ": there is no key in the file", failure);
}

}  // namespace kvx::publish
