// `kvxpublish sign`: sign the release that a site publishes.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_sign(CommandOptions command);

}  // namespace kvx::publish
