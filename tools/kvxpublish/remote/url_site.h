// A release site on a server, fetched as launchers fetch it.
#pragma once

#include <memory>
#include <string>

#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {

// Accepts what launchers accept as a base URL; a missing "/" at its end is added. Connects to nothing yet.
[[nodiscard]] bool open_url_site(std::string base_url, std::unique_ptr<SiteReader>& site, Failure& failure);

}  // namespace kvx::publish
