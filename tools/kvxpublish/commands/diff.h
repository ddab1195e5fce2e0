// `kvxpublish diff`: what a release, or a game's folder, would change for players of another release.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_diff(CommandOptions command);

}  // namespace kvx::publish
