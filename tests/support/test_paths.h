// Where the sources and the build lie; under Wine, as paths on its drive Z. Absolute folders stand in one source file
// alone: on the command lines of all they would keep a compiler cache from serving another checkout.
#pragma once

#include <string>
#include <string_view>

namespace kvx::test {

// `below` is a path below the folder; an empty one gives the folder itself.
[[nodiscard]] std::string source_path(std::string_view below);
[[nodiscard]] std::string build_path(std::string_view below);

}  // namespace kvx::test
