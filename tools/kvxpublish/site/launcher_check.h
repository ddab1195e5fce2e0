// A manifest as launchers will judge it, before it is published and wherever one is read. Any thread.
#pragma once

#include <string>
#include <string_view>

#include "manifest/manifest.h"
#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

// Reads a document as launchers on `channel` will, and refuses it with their message.
[[nodiscard]] bool check_as_launcher(std::string_view manifest, const std::string& channel, Failure& failure);
[[nodiscard]] bool check_as_launcher(std::string_view manifest, const std::string& channel, Manifest& read,
                                     Failure& failure);

}  // namespace kvx::publish
