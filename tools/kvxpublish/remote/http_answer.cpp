#include "tools/kvxpublish/remote/http_answer.h"

#include "net/content_range.h"

namespace kvx::publish {

bool read_total(std::wstring_view content_range, uint64_t& total) {
  const size_t slash = content_range.find(L'/');
  if (slash == std::wstring_view::npos) return false;
  content_range.remove_prefix(slash + 1);
  return take_number(content_range, total) && content_range.empty();
}

}  // namespace kvx::publish
