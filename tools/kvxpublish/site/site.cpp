#include "tools/kvxpublish/site/site.h"

#include <algorithm>
#include <optional>
#include <span>

#include "foundations/text.h"
#include "manifest/manifest_limits.h"
#include "manifest/sha256.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/folders.h"
#include "tools/kvxpublish/platform/parallel.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/platform/system.h"

namespace kvx::publish {
namespace {

std::string named(const fs::path& path, const std::string& text) { return path_text(path) + ": " + text; }

// A file and what it shall hold; no content means that it shall not be there.
struct FileChange {
  fs::path path;
  std::optional<std::string> content;
  std::optional<std::string> former;  // filled by read_former
};

bool read_former(FileChange& change, Failure& failure) {
  if (!is_file(change.path)) return true;
  std::string bytes;
  if (!read_file(change.path, largest_manifest_bytes, bytes)) {
    return fail(ExitCode::failed, named(change.path, "the published release cannot be read"), failure);
  }
  change.former = std::move(bytes);
  return true;
}

bool put(const fs::path& path, const std::optional<std::string>& content, std::string& reason) {
  return content ? write_file_atomic(path, *content, reason) : delete_file(path, reason);
}

bool refuse_damaged(const fs::path& content, Failure& failure) {
  return fail(
      ExitCode::failed,
      named(content, "is damaged: it has not the size of the content it is named after; delete it and pack again"),
      failure);
}

// Copies a file and hashes what is written. Nothing stays of a copy that fails.
bool copy_hashed(const fs::path& source, const fs::path& target, std::string& sha256, Failure& failure) {
  constexpr size_t buffer_bytes = 1048576;
  OutputFile to;
  const auto failed = [&](const std::string& reason) {
    to.close();
    discard_file(target);
    return fail(ExitCode::failed, named(source, "cannot be copied to the site: " + reason), failure);
  };
  InputFile from;
  Sha256Hasher hasher;
  FileKind kind{};
  std::string reason;
  if (!from.open(source, kind, reason) || !to.create(target, reason)) return failed(reason);
  std::vector<uint8_t> buffer(buffer_bytes);
  for (;;) {
    size_t got = 0;
    if (!from.read(buffer.data(), buffer.size(), got, reason)) return failed(reason);
    if (got == 0) break;
    if (!hasher.update(buffer.data(), got)) return failed("SHA-256 is not available on this system");
    if (!to.write(buffer.data(), got, reason)) return failed(reason);
  }
  to.close();
  sha256 = hasher.finish_text();
  return !sha256.empty() || failed("SHA-256 is not available on this system");
}

// All changes or none: when one fails, those before it are undone.
bool apply(std::span<FileChange> changes, Failure& failure) {
  for (FileChange& change : changes) {
    if (!read_former(change, failure)) return false;
  }
  for (auto change = changes.begin(); change != changes.end(); ++change) {
    const bool is_so_already = change->content == change->former && !is_folder(change->path);
    std::string reason;
    if (is_so_already || put(change->path, change->content, reason)) continue;
    for (auto done = changes.begin(); done != change; ++done) {
      std::string ignored;
      if (done->content != done->former) static_cast<void>(put(done->path, done->former, ignored));
    }
    return fail(ExitCode::failed, named(change->path, "cannot be written: " + reason), failure);
  }
  return true;
}

}  // namespace

SitePaths site_paths(const fs::path& site, const std::string& channel) {
  SitePaths paths;
  paths.channel_folder = channel == "live" ? site : site / path_of(channel);
  paths.manifest = paths.channel_folder / "manifest.json";
  paths.signature = paths.channel_folder / "manifest.sig";
  paths.files = site / "files";
  paths.history = site / "history" / path_of(channel);
  return paths;
}

fs::path history_manifest(const SitePaths& paths, uint64_t serial) {
  return paths.history / (std::to_string(serial) + ".json");
}

fs::path history_signature(const SitePaths& paths, uint64_t serial) {
  return paths.history / (std::to_string(serial) + ".sig");
}

bool is_reserved_channel(const std::string& channel) { return channel == "files" || channel == "history"; }

SiteWriter::~SiteWriter() {
  if (!published_) {
    for (const auto& [sha256, size] : added_) discard_file(waiting_path(sha256));
    for (const std::string& sha256 : moved_in_) discard_file(content_path(sha256));
  }
  if (!waiting_.empty()) discard_empty_folder(waiting_);
  if (!published_) remove_empty_folders(made_folders_);
}

// A name that no earlier program has left behind.
bool SiteWriter::make_waiting_folder(Failure& failure) {
  const std::string stem = "content-" + std::to_string(process_id());
  for (uint32_t number = 0;; ++number) {
    const fs::path folder = paths_.files.parent_path() / (stem + '-' + std::to_string(number) + ".tmp");
    std::string reason;
    bool exists = false;
    if (make_folder(folder, exists, reason)) {
      waiting_ = folder;
      return true;
    }
    if (exists) continue;
    return fail(ExitCode::failed, named(folder, "the folder cannot be made: " + reason), failure);
  }
}

bool SiteWriter::list_content(Failure& failure) {
  std::vector<FolderEntry> entries;
  if (!list_entries(paths_.files, entries, failure)) return false;
  for (const FolderEntry& entry : entries) {
    const std::string name = path_text(entry.name);
    if (is_sha256_hex(name)) there_[name] = entry.stamp.size;
  }
  return true;
}

bool SiteWriter::prepare(Failure& failure) {
  if (is_file(paths_.files)) return fail(ExitCode::failed, named(paths_.files, "is a file, not a folder"), failure);
  return make_folders(paths_.channel_folder, made_folders_, failure) &&
         make_folders(paths_.history, made_folders_, failure) && make_waiting_folder(failure) && list_content(failure);
}

fs::path SiteWriter::waiting_path(const std::string& sha256) const { return waiting_ / path_of(sha256); }

fs::path SiteWriter::content_path(const std::string& sha256) const { return paths_.files / path_of(sha256); }

bool SiteWriter::has_content(const std::string& sha256, uint64_t size, bool& present, Failure& failure) const {
  const auto known = there_.find(sha256);
  present = known != there_.end();
  return !present || known->second == size || refuse_damaged(content_path(sha256), failure);
}

std::set<uint64_t> SiteWriter::content_sizes() const {
  std::set<uint64_t> sizes;
  for (const auto& [sha256, size] : there_) sizes.insert(size);
  return sizes;
}

bool SiteWriter::claim(const std::string& sha256, uint64_t size, fs::path& place) {
  const std::scoped_lock lock(mutex_);
  if (!added_.emplace(sha256, size).second) return false;
  added_bytes_ += size;
  place = waiting_path(sha256);
  return true;
}

fs::path SiteWriter::temporary_path() {
  const std::scoped_lock lock(mutex_);
  return waiting_ / (std::to_string(temporary_count_++) + ".tmp");
}

bool SiteWriter::take_content(const fs::path& temporary, const std::string& sha256, uint64_t size, Failure& failure) {
  bool present = false;
  fs::path place;
  const bool usable = has_content(sha256, size, present, failure);
  if (!usable || present || !claim(sha256, size, place)) {
    discard_file(temporary);
    return usable;
  }
  std::string reason;
  if (move_file(temporary, place, reason)) return true;
  discard_file(temporary);
  return fail(ExitCode::failed, named(place, "cannot be written: " + reason), failure);
}

bool SiteWriter::add_content(const fs::path& source, const std::string& sha256, uint64_t size, Failure& failure) {
  bool present = false;
  if (!has_content(sha256, size, present, failure)) return false;
  if (present) return true;
  const fs::path temporary = temporary_path();
  std::string copied;
  if (!copy_hashed(source, temporary, copied, failure)) return false;
  // Hashing the copy also finds a file that changed since it was listed.
  if (copied != sha256) {
    discard_file(temporary);
    return fail(ExitCode::failed, named(source, "changed while it was packed; pack again"), failure);
  }
  return take_content(temporary, sha256, size, failure);
}

// Somebody else brought the content meanwhile, and launchers may be loading it.
bool SiteWriter::keep_present(const std::string& sha256, uint64_t present_size, Failure& failure) const {
  if (present_size != added_.at(sha256)) return refuse_damaged(content_path(sha256), failure);
  discard_file(waiting_path(sha256));
  return true;
}

bool SiteWriter::move_in(const std::string& sha256, Failure& failure) {
  const fs::path place = content_path(sha256);
  FileStamp present;
  if (file_stamp(place, present)) return keep_present(sha256, present.size, failure);
  std::string reason;
  if (!move_file(waiting_path(sha256), place, reason)) {
    return fail(ExitCode::failed, named(place, "cannot be written: " + reason), failure);
  }
  const std::scoped_lock lock(mutex_);
  moved_in_.insert(sha256);
  return true;
}

// The first content of a site comes in at one stroke, with its folder.
bool SiteWriter::move_content_in(Failure& failure) {
  if (!is_folder(paths_.files)) {
    std::string reason;
    if (!move_file(waiting_, paths_.files, reason)) {
      return fail(ExitCode::failed, named(paths_.files, "cannot be made: " + reason), failure);
    }
    made_folders_.insert(made_folders_.begin(), paths_.files);
    for (const auto& [sha256, size] : added_) moved_in_.insert(sha256);
    return true;
  }
  std::vector<std::string> digests;
  digests.reserve(added_.size());
  for (const auto& [sha256, size] : added_) digests.push_back(sha256);
  std::mutex failure_mutex;
  const auto work = [&](size_t index) {
    Failure reason;
    if (move_in(digests[index], reason)) return true;
    const std::scoped_lock lock(failure_mutex);
    failure = reason;
    return false;
  };
  return for_each_index(digests.size(), [&]() -> IndexWork { return work; });
}

// A manifest that survives a power loss must not name content that does not.
bool SiteWriter::settle_content(Failure& failure) const {
  std::string reason;
  return added_.empty() || flush_file_system(paths_.files, reason) ||
         fail(ExitCode::failed, named(paths_.files, "cannot be written to the disk: " + reason), failure);
}

bool SiteWriter::publish(uint64_t serial, const std::string& manifest, const std::string& signature_file,
                         Failure& failure) {
  const fs::path kept = history_manifest(paths_, serial);
  std::string kept_bytes;
  if (is_file(kept) && (!read_file(kept, largest_manifest_bytes, kept_bytes) || kept_bytes != manifest)) {
    return fail(ExitCode::serial_conflict,
                named(kept, "another release was already published under this serial; take a larger one"), failure);
  }
  std::optional<std::string> signature;
  if (!signature_file.empty()) signature = signature_file;
  if (!move_content_in(failure) || !settle_content(failure)) return false;
  // A program that is ended in between leaves no release in the history without its signature.
  FileChange changes[] = {{history_signature(paths_, serial), signature, {}},
                          {kept, manifest, {}},
                          {paths_.manifest, manifest, {}},
                          {paths_.signature, signature, {}}};
  published_ = apply(changes, failure);
  return published_;
}

}  // namespace kvx::publish
