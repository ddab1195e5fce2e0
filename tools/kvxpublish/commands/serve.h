// `kvxpublish serve`: a site over HTTPS on this machine, to try a release before players see it.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_serve(CommandOptions command);

}  // namespace kvx::publish
