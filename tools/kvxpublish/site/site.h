// A release site in a folder, as the update server hands it out: below its base URL lie manifest.json and manifest.sig
// of the channel "live", a folder with the same two for every other channel, and files/ with the content of all
// channels, every file named by its SHA-256. Content is never rewritten, because launchers and proxies keep it for
// good.
//
// history/CHANNEL/SERIAL.json and .sig keep every release that was ever published. Launchers never ask for them.
#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/platform/paths.h"

namespace kvx::publish {

struct SitePaths {
  fs::path channel_folder;  // the site itself for "live"
  fs::path manifest;
  fs::path signature;
  fs::path files;    // the folder of the content
  fs::path history;  // the folder of the channel's releases
};

[[nodiscard]] SitePaths site_paths(const fs::path& site, const std::string& channel);

// The manifest and the signature of one release in the channel's history.
[[nodiscard]] fs::path history_manifest(const SitePaths& paths, uint64_t serial);
[[nodiscard]] fs::path history_signature(const SitePaths& paths, uint64_t serial);

// Channels that launchers take but whose folder would be one of the site's own.
[[nodiscard]] bool is_reserved_channel(const std::string& channel);

// Adds content and publishes a release. New content waits in a folder of its own beside the site's (content-*.tmp)
// until `publish` moves it in. What the writer moved in itself is taken away again when it is destroyed without
// `publish` having succeeded, so that a failed command leaves the site as it was; content of others is never touched.
// Content may be added by several threads at once. The site's SiteLock is held all the while.
class SiteWriter {
 public:
  explicit SiteWriter(SitePaths paths) : paths_(std::move(paths)) {}
  SiteWriter(const SiteWriter&) = delete;
  SiteWriter& operator=(const SiteWriter&) = delete;
  ~SiteWriter();

  // Makes the folders that are missing and looks at what is there. Goes before everything else.
  [[nodiscard]] bool prepare(Failure& failure);

  // Whether the content is there already. One of another size is damaged, and a failure.
  [[nodiscard]] bool has_content(const std::string& sha256, uint64_t size, bool& present, Failure& failure) const;

  // The sizes of all content that was there before, in bytes.
  [[nodiscard]] std::set<uint64_t> content_sizes() const;

  // The place to write content to whose digest is known. False when another thread writes the same, or has done so.
  [[nodiscard]] bool claim(const std::string& sha256, uint64_t size, fs::path& place);

  // A place for content whose digest is not known yet.
  [[nodiscard]] fs::path temporary_path();

  // Takes the finished file from such a place, or drops it when there is the same content already.
  [[nodiscard]] bool take_content(const fs::path& temporary, const std::string& sha256, uint64_t size,
                                  Failure& failure);

  // Copies a file whose digest and size are known. Content that the site already has stays as it is.
  [[nodiscard]] bool add_content(const fs::path& source, const std::string& sha256, uint64_t size, Failure& failure);

  // Moves the content in, replaces the channel's manifest and its signature and keeps both in the history; an empty
  // signature leaves the release unsigned and takes a former one away, which would not fit the manifest. What is
  // already as it should be is not written. Once a serial is in the history, only the same manifest may be published
  // under it.
  [[nodiscard]] bool publish(uint64_t serial, const std::string& manifest, const std::string& signature_file,
                             Failure& failure);

  [[nodiscard]] size_t added_count() const { return added_.size(); }
  [[nodiscard]] uint64_t added_bytes() const { return added_bytes_; }

 private:
  [[nodiscard]] bool make_waiting_folder(Failure& failure);
  [[nodiscard]] bool list_content(Failure& failure);
  [[nodiscard]] fs::path waiting_path(const std::string& sha256) const;
  [[nodiscard]] fs::path content_path(const std::string& sha256) const;
  [[nodiscard]] bool move_content_in(Failure& failure);
  [[nodiscard]] bool settle_content(Failure& failure) const;
  [[nodiscard]] bool move_in(const std::string& sha256, Failure& failure);
  [[nodiscard]] bool keep_present(const std::string& sha256, uint64_t present_size, Failure& failure) const;

  SitePaths paths_;
  fs::path waiting_;                                 // the folder of content that is not yet in the site
  std::unordered_map<std::string, uint64_t> there_;  // sizes by digest, as they were at the beginning
  std::mutex mutex_;                                 // guards what follows
  uint64_t temporary_count_ = 0;
  std::unordered_map<std::string, uint64_t> added_;  // sizes by digest
  std::unordered_set<std::string> moved_in_;         // digests of what only this writer has put into files/
  uint64_t added_bytes_ = 0;
  std::vector<fs::path> made_folders_;  // innermost first
  bool published_ = false;
};

}  // namespace kvx::publish
