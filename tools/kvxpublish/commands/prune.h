// `kvxpublish prune`: old releases and their content go.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_prune(CommandOptions command);

}  // namespace kvx::publish
