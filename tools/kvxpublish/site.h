// A release site as the update server hands it out: below its base URL lie manifest.json and manifest.sig of the
// channel "live", a folder with the same two for every other channel, and files/ with the content of all channels,
// every file named by its SHA-256. Content is never rewritten, because launchers and proxies keep it for good.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kvxpublish/failure.h"

namespace kvx::publish {

struct SitePaths {
  std::wstring channel_folder;  // the site itself for "live"
  std::wstring manifest;
  std::wstring signature;
  std::wstring files;  // the folder of the content
};

[[nodiscard]] SitePaths site_paths(const std::wstring& site, const std::string& channel);

// Adds content and publishes a release. What it added is taken away again when it is destroyed without `publish` having
// succeeded, so that a failed command leaves the site as it was.
class SiteWriter {
 public:
  explicit SiteWriter(SitePaths paths) : paths_(std::move(paths)) {}
  SiteWriter(const SiteWriter&) = delete;
  SiteWriter& operator=(const SiteWriter&) = delete;
  ~SiteWriter();

  [[nodiscard]] bool prepare(Failure& failure);

  // Copies a file whose digest and size are known. Content that the site already has stays as it is.
  [[nodiscard]] bool add_content(const std::wstring& source, const std::string& sha256, uint64_t size,
                                 Failure& failure);

  // Replaces the channel's manifest and its signature; an empty signature leaves the release unsigned and takes a
  // former one away, which would not fit the new manifest.
  [[nodiscard]] bool publish(const std::string& manifest, const std::string& signature_file, Failure& failure);

  [[nodiscard]] size_t added_count() const { return added_.size(); }
  [[nodiscard]] uint64_t added_bytes() const { return added_bytes_; }

 private:
  [[nodiscard]] bool make_folder(const std::wstring& folder, Failure& failure);

  SitePaths paths_;
  std::vector<std::wstring> made_folders_;  // innermost first
  std::vector<std::wstring> added_;
  uint64_t added_bytes_ = 0;
  bool published_ = false;
};

}  // namespace kvx::publish
