// A file that makes room for another: it waits beside its place under a temporary name, and comes back unless the new
// one is there to stay.
#pragma once

#include <string>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

class SetAside {
 public:
  SetAside() = default;
  SetAside(SetAside&& other) noexcept : path_(std::move(other.path_)) { other.path_.clear(); }
  SetAside(const SetAside&) = delete;
  SetAside& operator=(const SetAside&) = delete;
  SetAside& operator=(SetAside&&) = delete;
  ~SetAside();  // puts the file back

  [[nodiscard]] bool take(const fs::path& path, Failure& failure);

  // The file is not needed any more.
  void drop();

 private:
  fs::path path_;  // empty when nothing waits
};

}  // namespace kvx::publish
