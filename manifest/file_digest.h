// The SHA-256 of a whole file, read as a stream through one buffer of 4 MiB. Any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kvx {

// Called with the number of bytes just read; false stops the hashing.
using HashProgress = std::function<bool(uint64_t bytes)>;

// The digest as 64 lower-case hexadecimal characters. On failure empty: `error` then says why the file could not be
// read, is "cancelled" when `progress` stopped it, and stays as it was when the hasher itself failed. `progress` may be
// empty.
[[nodiscard]] std::string hash_file(const std::wstring& path, const HashProgress& progress, std::string& error);

}  // namespace kvx
