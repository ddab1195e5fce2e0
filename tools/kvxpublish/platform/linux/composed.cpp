#include "tools/kvxpublish/platform/composed.h"

#include <utf8proc.h>

#include <cstdlib>
#include <memory>

namespace kvx::publish {

std::string composed(const std::string& text) {
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> normal(
      utf8proc_NFC(reinterpret_cast<const utf8proc_uint8_t*>(text.c_str())), &std::free);
  return normal ? std::string(reinterpret_cast<const char*>(normal.get())) : text;
}

}  // namespace kvx::publish
