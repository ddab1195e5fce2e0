#include "tools/kvxpublish/keys/wipe.h"

namespace kvx::publish {

void wipe(void* bytes, size_t count) {
  volatile auto* next = static_cast<volatile unsigned char*>(bytes);
  for (; count > 0; --count) *next++ = 0;
}

}  // namespace kvx::publish
