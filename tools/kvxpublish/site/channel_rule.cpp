#include "tools/kvxpublish/site/channel_rule.h"

#include "manifest/managed_path.h"
#include "manifest/manifest.h"
#include "tools/kvxpublish/site/site.h"

namespace kvx::publish {

bool check_channel(const std::string& channel, Failure& failure) {
  if (!is_channel_name(channel)) {
    return fail(ExitCode::refused,
                "launchers would refuse the channel \"" + channel +
                    R"(": a channel is 1 to 32 characters of a-z, 0-9, "-" and "_")",
                failure);
  }
  std::string error;
  if (!is_managed_path(channel, {}, error)) {
    return fail(
        ExitCode::usage,
        "the channel \"" + channel + "\" is a device name, and Windows makes no folder of it; choose another name",
        failure);
  }
  return !is_reserved_channel(channel) ||
         fail(ExitCode::usage,
              "the channel \"" + channel + "\" would share a folder with the site's own files; choose another name",
              failure);
}

}  // namespace kvx::publish
