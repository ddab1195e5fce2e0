// The owner of a WinHTTP handle. The type behind it is HINTERNET, a plain pointer; naming it so keeps <winhttp.h> out
// of the headers that only pass it on.
#pragma once

#include "foundations/unique_handle.h"

namespace kvx {

struct WinHttpHandleTraits {
  using value_type = void*;
  static value_type none() { return nullptr; }
  static void close(value_type value);
};

using WinHttpHandle = UniqueHandle<WinHttpHandleTraits>;

}  // namespace kvx
