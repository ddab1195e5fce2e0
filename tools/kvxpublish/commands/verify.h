// `kvxpublish verify`: whether launchers would take what a site offers.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_verify(CommandOptions command);

}  // namespace kvx::publish
