#include "tools/kvxpublish/site/set_aside.h"

#include "foundations/text.h"
#include "tools/kvxpublish/platform/files.h"

namespace kvx::publish {
namespace {

fs::path waiting_path(fs::path path) { return path += ".aside.tmp"; }

}  // namespace

SetAside::~SetAside() {
  std::string ignored;
  if (!path_.empty()) static_cast<void>(move_file(waiting_path(path_), path_, ignored));
}

bool SetAside::take(const fs::path& path, Failure& failure) {
  std::string reason;
  if (!move_file(path, waiting_path(path), reason)) {
    return fail(ExitCode::failed, path_text(path) + ": cannot be moved aside: " + reason, failure);
  }
  path_ = path;
  return true;
}

void SetAside::drop() {
  std::string ignored;
  if (!path_.empty()) static_cast<void>(delete_file(waiting_path(path_), ignored));
  path_.clear();
}

}  // namespace kvx::publish
