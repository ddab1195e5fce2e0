// How large a manifest and its signature may be, on the wire and on disk.
#pragma once

#include <cstdint>

namespace kvx {

constexpr uint64_t largest_manifest_bytes = 67108864;
constexpr uint64_t largest_signature_bytes = 4096;

}  // namespace kvx
