#include "tools/kvxpublish/release/private_key_check.h"

#include <algorithm>
#include <string_view>

#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {
namespace {

constexpr size_t head_bytes = 4096;

bool refuse(const GameFile& file, Failure& failure) {
  return fail(ExitCode::refused,
              path_text(file.source) +
                  ": holds a private key; take it out of the game's folder, or leave it out with --exclude",
              failure);
}

}  // namespace

bool check_key_is_elsewhere(const std::vector<GameFile>& files, const fs::path& key, Failure& failure) {
  const auto is_key = [&](const GameFile& file) { return is_same_path(file.source, key); };
  const auto found = key.empty() ? files.end() : std::ranges::find_if(files, is_key);
  return found == files.end() || refuse(*found, failure);
}

// The parameters of a key, or its certificate, may go before it.
bool check_no_private_key(const GameFile& file, const uint8_t* bytes, size_t count, Failure& failure) {
  const std::string_view head(reinterpret_cast<const char*>(bytes), std::min(count, head_bytes));
  const bool is_key = head.starts_with("-----BEGIN") && head.find("PRIVATE KEY-----") != std::string_view::npos;
  return !is_key || refuse(file, failure);
}

}  // namespace kvx::publish
