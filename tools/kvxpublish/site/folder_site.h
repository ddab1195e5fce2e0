// A release site in a folder.
#pragma once

#include <memory>
#include <string>

#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {

// `folder` as it stands on the command line.
[[nodiscard]] std::unique_ptr<SiteReader> open_folder_site(const std::string& folder);

}  // namespace kvx::publish
