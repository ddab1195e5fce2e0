#include "engine/blob_store.h"

#include <utility>

#include "foundations/files.h"
#include "foundations/text.h"

namespace kvx {

BlobStore::BlobStore(std::wstring download_dir, std::wstring blobs_dir)
    : download_dir_(std::move(download_dir)), blobs_dir_(std::move(blobs_dir)) {}

void BlobStore::create_folders() const {
  static_cast<void>(kvx::create_folders(download_dir_));
  static_cast<void>(kvx::create_folders(blobs_dir_));
}

std::wstring BlobStore::partial_path(const std::string& hash) const {
  return download_dir_ + L'\\' + to_wide(hash) + L".part";
}

std::wstring BlobStore::blob_path(const std::string& hash) const { return blobs_dir_ + L'\\' + to_wide(hash); }

bool BlobStore::has_blob(const std::string& hash, uint64_t size) const {
  FileStamp stamp;
  return file_stamp(blob_path(hash), stamp) && stamp.size == size;
}

uint64_t BlobStore::staged_bytes(const std::string& hash, uint64_t size) const {
  if (has_blob(hash, size)) return size;
  FileStamp stamp;
  if (file_stamp(partial_path(hash), stamp) && stamp.size <= size) return stamp.size;
  return 0;
}

void BlobStore::clear_staging(const StopSignal* stop) const {
  for (const std::wstring& folder : {download_dir_, blobs_dir_}) {
    for (const std::wstring& name : list_folder(folder)) {
      if (stop != nullptr && stop->requested()) return;
      uint32_t error = 0;
      static_cast<void>(delete_file(folder + L'\\' + name, error, stop));
    }
  }
}

}  // namespace kvx
