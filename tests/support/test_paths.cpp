#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

std::string path_below(const char* folder, std::string_view below) {
  std::string path = folder;
  if (!below.empty()) path.append("/").append(below);
  return path;
}

}  // namespace

std::string source_path(std::string_view below) { return path_below(KVX_SOURCE_FOLDER, below); }
std::string build_path(std::string_view below) { return path_below(KVX_BINARY_FOLDER, below); }

}  // namespace kvx::test
