// Whether a new release would bring players anything that the one before did not. Pure functions; any thread.
#pragma once

#include "manifest/manifest.h"
#include "tools/kvxpublish/release/manifest_text.h"

namespace kvx::publish {

// Everything is the same that shows without reading the files.
[[nodiscard]] bool looks_like(const ReleaseDescription& release, const Manifest& previous);

// For two that look alike, after the files were read: their content and the demand for free disk are the same too.
[[nodiscard]] bool has_same_content(const ReleaseDescription& release, const Manifest& previous);

}  // namespace kvx::publish
