// Bringing content from one site to another.
#pragma once

#include <vector>

#include "tools/kvxpublish/cli/console.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/site/release_content.h"
#include "tools/kvxpublish/site/site.h"

namespace kvx::publish {

// Adds pieces of content of the site in the folder `from`, none of which the writer's site has as it should be. What is
// copied is also hashed: content that is not what its name says is a failure. On all cores.
[[nodiscard]] bool copy_content(const std::string& from, const std::vector<Content>& content, SiteWriter& writer,
                                Console& console, Failure& failure);

}  // namespace kvx::publish
