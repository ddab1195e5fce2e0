#include "tools/kvxpublish/cli/console.h"

namespace kvx::publish {

std::string coloured(const Console& console, Colour colour, const std::string& text) {
  if (!console.has_colours()) return text;
  return "\x1b[" + std::to_string(static_cast<int>(colour)) + "m" + text + "\x1b[0m";
}

}  // namespace kvx::publish
