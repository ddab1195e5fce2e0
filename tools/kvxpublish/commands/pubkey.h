// `kvxpublish pubkey`: what a build of the launcher needs of a key.
#pragma once

#include <string>

#include "tools/kvxpublish/cli/command.h"
#include "tools/kvxpublish/keys/pem_key.h"

namespace kvx::publish {

// --name, the key's place in the build's list: "primary" unless given, or "backup".
void add_key_name_option(CommandOptions command, std::string& value);

// Identifier, fingerprint and the line for the build.
[[nodiscard]] bool report_public_key(const std::string& name, const PublicPoint& point, Report& report,
                                     Failure& failure);

[[nodiscard]] RunCommand define_pubkey(CommandOptions command);

}  // namespace kvx::publish
