// `kvxpublish promote`: what one channel offers is offered on another too.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_promote(CommandOptions command);

}  // namespace kvx::publish
