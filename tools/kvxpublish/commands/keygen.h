// `kvxpublish keygen`: a new key pair for signing releases.
#pragma once

#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

[[nodiscard]] RunCommand define_keygen(CommandOptions command);

}  // namespace kvx::publish
