// `kvxpublish prune`: old releases and their content go.
#pragma once

#include "tools/kvxpublish/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_prune(CommandOptions command);

}  // namespace kvx::publish
