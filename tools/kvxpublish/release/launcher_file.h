// A launcher program that a release hands out.
#pragma once

#include <string>

#include "manifest/manifest.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/keys/pem_key.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

// The manifest's entry for the program. Its version is the one that the program itself reports (the text after
// "KVXLAUNCHER-VERSION:"), and its version record must agree: launchers would otherwise update themselves to it again
// and again, or never. It must know `signer`, the key of the release, which may be null when that is not known yet:
// otherwise players would get a launcher that refuses what follows.
[[nodiscard]] bool describe_launcher_file(const fs::path& path, const PublicPoint* signer, LauncherEntry& entry,
                                          Failure& failure);

}  // namespace kvx::publish
