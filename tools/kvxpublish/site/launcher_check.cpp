#include "tools/kvxpublish/site/launcher_check.h"

#include "manifest/json.h"
#include "manifest/manifest_limits.h"

namespace kvx::publish {

bool check_as_launcher(std::string_view manifest, const std::string& channel, Failure& failure) {
  Manifest read;
  return check_as_launcher(manifest, channel, read, failure);
}

bool check_as_launcher(std::string_view manifest, const std::string& channel, Manifest& read, Failure& failure) {
  if (manifest.size() > largest_manifest_bytes) {
    return fail(ExitCode::refused, "launchers would refuse this release: its manifest is larger than 64 MiB", failure);
  }
  JsonDocument document;
  std::string error;
  if (!parse_json(manifest, document, error) || !read_manifest(document.root(), L"KVXLauncher.exe", read, error)) {
    return fail(ExitCode::refused, "launchers would refuse this release: " + error, failure);
  }
  if (read.channel != channel) {
    return fail(ExitCode::refused,
                "launchers on channel \"" + channel + "\" would refuse this release: it is for channel \"" +
                    read.channel + "\"",
                failure);
  }
  return true;
}

}  // namespace kvx::publish
