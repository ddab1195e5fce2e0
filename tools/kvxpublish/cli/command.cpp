#include "tools/kvxpublish/cli/command.h"

namespace kvx::publish {

void add_site_folder(CommandOptions command, std::string& value) {
  command.add_path("SITE", value, "The site's folder").required();
}

void add_channel_option(CommandOptions command, std::string& value) {
  value = "live";
  command.add_text("--channel", value, "The release channel").type_name("C").show_default();
}

void add_public_keys_option(CommandOptions command, std::string& value) {
  command
      .add_path("--public-keys", value,
                "The public keys that count, a file as builds take it; by default the keys of this build")
      .type_name("FILE");
}

std::string public_keys_argument(const std::string& option) {
  return option.empty() ? option : " --public-keys \"" + option + '"';
}

}  // namespace kvx::publish
