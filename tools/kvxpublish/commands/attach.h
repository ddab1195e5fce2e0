// `kvxpublish attach`: a signature that was made elsewhere becomes the release's.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_attach(CommandOptions command);

}  // namespace kvx::publish
