// The SHA-256 of whole files, read as a stream.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kvx {

// Called with the number of bytes just read; false stops the hashing.
using HashProgress = std::function<bool(uint64_t bytes)>;

// Hashes any number of files through one buffer, which is as large as the largest of them needs, and at most 4 MiB. For
// one thread at a time.
class FileHasher {
 public:
  // The digest as 64 lower-case hexadecimal characters. On failure empty: `error` then says why the file could not be
  // read, is "cancelled" when `progress` stopped it, and stays as it was when the hasher itself failed. `progress` may
  // be empty.
  [[nodiscard]] std::string hash(const std::wstring& path, const HashProgress& progress, std::string& error);

 private:
  void make_buffer_for(uint64_t file_bytes);

  std::unique_ptr<uint8_t[]> buffer_;
  uint32_t buffer_bytes_ = 0;
};

// One file alone. Any thread.
[[nodiscard]] std::string hash_file(const std::wstring& path, const HashProgress& progress, std::string& error);

}  // namespace kvx
