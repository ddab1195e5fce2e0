#include "tools/kvxpublish/command.h"

namespace kvx::publish {

void add_site_folder(CommandOptions command, std::string& value) {
  command.add_path("SITE", value, "The site's folder").required();
}

void add_channel_option(CommandOptions command, std::string& value) {
  value = "live";
  command.add_text("--channel", value, "The release channel").type_name("C").show_default();
}

}  // namespace kvx::publish
