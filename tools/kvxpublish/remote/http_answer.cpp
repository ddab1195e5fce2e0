#include "tools/kvxpublish/remote/http_answer.h"

#include <charconv>

namespace kvx::publish {

bool read_total(std::string_view content_range, uint64_t& total) {
  const size_t slash = content_range.find('/');
  return slash != std::string_view::npos && read_number(content_range.substr(slash + 1), total);
}

bool read_number(std::string_view header, uint64_t& number) {
  const auto [end, error] = std::from_chars(header.data(), header.data() + header.size(), number);
  return error == std::errc() && end == header.data() + header.size() && !header.empty();
}

}  // namespace kvx::publish
