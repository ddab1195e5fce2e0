#include "tools/kvxpublish/platform/composed.h"

#include <windows.h>

#include "foundations/text.h"

namespace kvx::publish {

std::string composed(const std::string& text) {
  const std::wstring wide = to_wide(text);
  const int length = static_cast<int>(wide.size());
  const int room = NormalizeString(NormalizationC, wide.c_str(), length, nullptr, 0);
  if (room <= 0) return text;
  std::wstring normal(static_cast<size_t>(room), L'\0');
  const int written = NormalizeString(NormalizationC, wide.c_str(), length, normal.data(), room);
  if (written <= 0) return text;
  normal.resize(static_cast<size_t>(written));
  return to_utf8(normal);
}

}  // namespace kvx::publish
