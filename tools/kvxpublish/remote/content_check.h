// Whether a site has the content of a release: in a folder by looking, on a server by asking as launchers ask.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/cli/console.h"
#include "tools/kvxpublish/cli/problems.h"
#include "tools/kvxpublish/site/release_content.h"

namespace kvx::publish {

enum class ContentDepth : uint8_t {
  sizes,    // that it is there, with its size
  digests,  // that it is what its name says, which means to read all of it
};

// `location` is a folder or URL. What is wrong with the content becomes problems; false only when the check itself
// could not be made, or the person has stopped it.
[[nodiscard]] bool check_content(const std::string& location, const std::vector<Content>& content, ContentDepth depth,
                                 Console& console, Problems& problems, Failure& failure);

}  // namespace kvx::publish
