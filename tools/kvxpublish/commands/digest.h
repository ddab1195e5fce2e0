// `kvxpublish digest`: what a key that never leaves its vault must sign.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_digest(CommandOptions command);

}  // namespace kvx::publish
