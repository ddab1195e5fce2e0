// Clearing secrets from memory.
#pragma once

#include <cstddef>

namespace kvx::publish {

// Overwrites the bytes with zeros, also where a compiler sees that nobody reads them any more.
void wipe(void* bytes, size_t count);

}  // namespace kvx::publish
