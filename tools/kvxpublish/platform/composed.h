// Unicode's normal form C, in which every character has one form.
#pragma once

#include <string>

namespace kvx::publish {

// Text that has none stays as it is. Any thread.
[[nodiscard]] std::string composed(const std::string& text);

}  // namespace kvx::publish
