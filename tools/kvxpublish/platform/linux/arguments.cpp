#include "tools/kvxpublish/platform/arguments.h"

namespace kvx::publish {

std::vector<std::string> program_arguments(int count, char** words) {
  return count > 0 ? std::vector<std::string>(words + 1, words + count) : std::vector<std::string>();
}

}  // namespace kvx::publish
