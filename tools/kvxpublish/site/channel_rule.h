// Which channels a site can have.
#pragma once

#include <string>

#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

// A channel that launchers take, and whose name a folder can have that is none of the site's own.
[[nodiscard]] bool check_channel(const std::string& channel, Failure& failure);

}  // namespace kvx::publish
