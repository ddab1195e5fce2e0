// `kvxpublish rollback`: an older release's content becomes the newest release.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_rollback(CommandOptions command);

}  // namespace kvx::publish
