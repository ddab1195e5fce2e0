// Where the content of a release waits before it is installed: one folder of partial downloads, each named by the
// blob's SHA-256 and ".part", and one of finished, verified blobs, each named by its SHA-256 alone. Nothing else is in
// either.
//
// A blob is absent, partial or finished; only a verified download turns partial into finished. Threads may work on
// different blobs at once.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "foundations/stop_signal.h"

namespace kvx {

class BlobStore {
 public:
  BlobStore(std::wstring download_dir, std::wstring blobs_dir);

  // Makes both folders where they are missing; a failure shows when a blob is written.
  void create_folders() const;

  [[nodiscard]] std::wstring partial_path(const std::string& hash) const;
  [[nodiscard]] std::wstring blob_path(const std::string& hash) const;

  // Lists both folders, so that has_blob and staged_bytes need not ask the system for every single blob. Later changes
  // on disk are not seen until clear_staging. The sizes are those of the listing, which the system may update late; a
  // size that is wrong there costs another download and never a wrong blob, because every blob is hashed.
  void take_stock();

  // True when a finished blob of that size is there. Its content is not read.
  [[nodiscard]] bool has_blob(const std::string& hash, uint64_t size) const;

  // How many bytes of a blob are on disk already, judged by file sizes alone: an estimate for the free-space check. The
  // download reads the content before it trusts it.
  [[nodiscard]] uint64_t staged_bytes(const std::string& hash, uint64_t size) const;

  // Deletes everything in both folders; what cannot be deleted stays. Ends early when `stop`, which may be null, is
  // requested.
  void clear_staging(const StopSignal* stop = nullptr);

 private:
  using SizeByName = std::unordered_map<std::wstring, uint64_t>;
  struct Stock {
    SizeByName partial;
    SizeByName finished;
  };

  // Empty when the file does not exist.
  [[nodiscard]] std::optional<uint64_t> finished_size(const std::string& hash) const;
  [[nodiscard]] std::optional<uint64_t> partial_size(const std::string& hash) const;

  std::wstring download_dir_;
  std::wstring blobs_dir_;
  std::optional<Stock> stock_;
};

}  // namespace kvx
