#include "tools/kvxpublish/site/set_aside.h"

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/text.h"

namespace kvx::publish {
namespace {

std::wstring waiting_path(const std::wstring& path) { return path + L".aside.tmp"; }

}  // namespace

SetAside::~SetAside() {
  uint32_t ignored = 0;
  if (!path_.empty()) static_cast<void>(move_file(waiting_path(path_), path_, ignored));
}

bool SetAside::take(const std::wstring& path, Failure& failure) {
  uint32_t error = 0;
  if (!move_file(path, waiting_path(path), error)) {
    return fail(ExitCode::failed, to_utf8(path) + ": cannot be moved aside: " + error_text(error), failure);
  }
  path_ = path;
  return true;
}

void SetAside::drop() {
  uint32_t ignored = 0;
  if (!path_.empty()) static_cast<void>(delete_file(waiting_path(path_), ignored));
  path_.clear();
}

}  // namespace kvx::publish
