// A site by what a person calls it.
#pragma once

#include <memory>
#include <string>

#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {

// `location` is a folder or a URL as it stands on the command line. A URL must be one that launchers accept (https, or
// http on this machine); neither is touched yet, so that a site that is not there shows as one without any file.
[[nodiscard]] bool open_site(const std::string& location, std::unique_ptr<SiteReader>& site, Failure& failure);

}  // namespace kvx::publish
