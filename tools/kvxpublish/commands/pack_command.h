// `kvxpublish pack`: a game's folder becomes a release on a site.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_pack(CommandOptions command);

}  // namespace kvx::publish
