#include "tools/kvxpublish/site/folder_site.h"

#include <utility>
#include <vector>

#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {
namespace {

constexpr size_t read_buffer_bytes = 1048576;

class FolderSite : public SiteReader {
 public:
  explicit FolderSite(fs::path folder) : folder_(std::move(folder)) {}

  [[nodiscard]] std::string name_of(const std::string& relative) const override { return path_text(full(relative)); }

  [[nodiscard]] Search read_file(const std::string& relative, uint64_t limit, std::string& bytes,
                                 Failure& failure) override {
    InputFile file;
    uint64_t size = 0;
    std::string reason;
    const Search search = open(relative, file, failure);
    if (search != Search::found) return search;
    if (!file.size(size, reason)) return cannot_read(relative, reason, failure);
    if (size > limit) return failed(relative, "is larger than " + std::to_string(limit) + " bytes", failure);
    bytes.clear();
    const auto sink = [&](const uint8_t* piece, size_t count) {
      bytes.append(piece, piece + count);
      return true;
    };
    uint64_t count = 0;
    return read_to_end(relative, file, sink, count, failure) ? Search::found : Search::failed;
  }

  [[nodiscard]] Search find_size(const std::string& relative, uint64_t& size, Failure& failure) override {
    FileStamp stamp;
    FileKind kind{};
    std::string reason;
    if (!file_stamp(full(relative), stamp, kind, reason)) return not_found(relative, kind, reason, failure);
    size = stamp.size;
    return Search::found;
  }

  [[nodiscard]] bool read_content(const std::string& relative, uint64_t size, const ContentSink& sink,
                                  Failure& failure) override {
    InputFile file;
    FileKind kind{};
    std::string reason;
    if (!file.open(full(relative), kind, reason)) {
      static_cast<void>(cannot_read(relative, reason, failure));
      return false;
    }
    uint64_t count = 0;
    if (!read_to_end(relative, file, sink, count, failure)) return false;
    return count == size ||
           fail(ExitCode::failed,
                name_of(relative) + ": has " + std::to_string(count) + " bytes, not " + std::to_string(size), failure);
  }

 private:
  [[nodiscard]] fs::path full(const std::string& relative) const { return folder_ / path_of(relative); }

  Search open(const std::string& relative, InputFile& file, Failure& failure) const {
    FileKind kind{};
    std::string reason;
    return file.open(full(relative), kind, reason) ? Search::found : not_found(relative, kind, reason, failure);
  }

  // Counts the bytes that the sink has got.
  [[nodiscard]] bool read_to_end(const std::string& relative, InputFile& file, const ContentSink& sink, uint64_t& count,
                                 Failure& failure) const {
    std::vector<uint8_t> buffer(read_buffer_bytes);
    for (;;) {
      size_t got = 0;
      std::string reason;
      if (!file.read(buffer.data(), buffer.size(), got, reason)) {
        static_cast<void>(cannot_read(relative, reason, failure));
        return false;
      }
      if (got == 0) return true;
      count += got;
      if (!sink(buffer.data(), got)) return fail(ExitCode::failed, name_of(relative) + ": stopped", failure);
    }
  }

  // Only what is certainly not there is absent: whoever takes a release that cannot be read for none publishes over it.
  Search not_found(const std::string& relative, FileKind kind, const std::string& reason, Failure& failure) const {
    if (kind == FileKind::missing) return Search::absent;
    if (kind == FileKind::folder) return failed(relative, "is a folder", failure);
    return cannot_read(relative, reason, failure);
  }

  Search failed(const std::string& relative, const std::string& reason, Failure& failure) const {
    static_cast<void>(fail(ExitCode::failed, name_of(relative) + ": " + reason, failure));
    return Search::failed;
  }

  Search cannot_read(const std::string& relative, const std::string& reason, Failure& failure) const {
    return failed(relative, "cannot be read: " + reason, failure);
  }

  const fs::path folder_;
};

}  // namespace

std::unique_ptr<SiteReader> open_folder_site(const std::string& folder) {
  return std::make_unique<FolderSite>(given_path(folder));
}

}  // namespace kvx::publish
