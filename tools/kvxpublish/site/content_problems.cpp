#include "tools/kvxpublish/site/content_problems.h"

namespace kvx::publish {

std::string missing_problem(const std::string& name) {
  return name + ": is missing; publish the release there again, or pack it again";
}

std::string size_problem(const std::string& name, uint64_t actual, uint64_t size) {
  return name + ": is damaged, with " + std::to_string(actual) + " bytes instead of " + std::to_string(size) +
         "; delete it and publish the release there again, or pack it again";
}

std::string digest_problem(const std::string& name) {
  return name +
         ": is damaged, its digest is not its name; delete it and publish the release there again, or pack it "
         "again";
}

}  // namespace kvx::publish
