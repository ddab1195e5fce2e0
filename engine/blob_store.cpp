#include "engine/blob_store.h"

#include <utility>

#include "foundations/files.h"
#include "foundations/text.h"

namespace kvx {
namespace {

constexpr wchar_t partial_ending[] = L".part";

std::unordered_map<std::wstring, uint64_t> sizes_in(const std::wstring& folder) {
  std::unordered_map<std::wstring, uint64_t> sizes;
  for (FolderEntry& entry : list_entries(folder)) {
    if (!entry.is_folder) sizes.emplace(std::move(entry.name), entry.size);
  }
  return sizes;
}

std::optional<uint64_t> find_size(const std::unordered_map<std::wstring, uint64_t>& sizes, const std::wstring& name) {
  const auto found = sizes.find(name);
  return found == sizes.end() ? std::nullopt : std::optional(found->second);
}

std::optional<uint64_t> size_on_disk(const std::wstring& path) {
  FileStamp stamp;
  return file_stamp(path, stamp) ? std::optional(stamp.size) : std::nullopt;
}

}  // namespace

BlobStore::BlobStore(std::wstring download_dir, std::wstring blobs_dir)
    : download_dir_(std::move(download_dir)), blobs_dir_(std::move(blobs_dir)) {}

void BlobStore::create_folders() const {
  static_cast<void>(kvx::create_folders(download_dir_));
  static_cast<void>(kvx::create_folders(blobs_dir_));
}

std::wstring BlobStore::partial_path(const std::string& hash) const {
  return download_dir_ + L'\\' + to_wide(hash) + partial_ending;
}

std::wstring BlobStore::blob_path(const std::string& hash) const { return blobs_dir_ + L'\\' + to_wide(hash); }

void BlobStore::take_stock() { stock_ = Stock{sizes_in(download_dir_), sizes_in(blobs_dir_)}; }

bool BlobStore::has_blob(const std::string& hash, uint64_t size) const { return finished_size(hash) == size; }

uint64_t BlobStore::staged_bytes(const std::string& hash, uint64_t size) const {
  if (has_blob(hash, size)) return size;
  const std::optional<uint64_t> partial = partial_size(hash);
  return partial && *partial <= size ? *partial : 0;
}

std::optional<uint64_t> BlobStore::finished_size(const std::string& hash) const {
  return stock_ ? find_size(stock_->finished, to_wide(hash)) : size_on_disk(blob_path(hash));
}

std::optional<uint64_t> BlobStore::partial_size(const std::string& hash) const {
  return stock_ ? find_size(stock_->partial, to_wide(hash) + partial_ending) : size_on_disk(partial_path(hash));
}

void BlobStore::clear_staging(const StopSignal* stop) {
  stock_.reset();
  for (const std::wstring& folder : {download_dir_, blobs_dir_}) {
    for (const std::wstring& name : list_folder(folder)) {
      if (stop != nullptr && stop->requested()) return;
      uint32_t error = 0;
      static_cast<void>(delete_file(folder + L'\\' + name, error, stop));
    }
  }
}

}  // namespace kvx
