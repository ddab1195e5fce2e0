// A folder for one test, on every system.
#pragma once

#include <atomic>
#include <filesystem>

#include "tools/kvxpublish/platform/system.h"

namespace kvx::test {

namespace fs = std::filesystem;

class WorkFolder {
 public:
  WorkFolder() {
    static std::atomic<int> count{0};
    const std::string name = "kvxpublish-test-" + std::to_string(publish::process_id()) + '-' + std::to_string(++count);
    path_ = fs::temp_directory_path() / name;
    fs::remove_all(path_);  // an earlier process with this id may have left one
    fs::create_directories(path_);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  ~WorkFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

}  // namespace kvx::test
