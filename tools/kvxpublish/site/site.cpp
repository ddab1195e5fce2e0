#include "tools/kvxpublish/site/site.h"

#include <windows.h>

#include <algorithm>
#include <optional>
#include <span>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "manifest/file_digest.h"
#include "manifest/manifest_limits.h"
#include "tools/kvxpublish/platform/folder_listing.h"
#include "tools/kvxpublish/platform/made_folders.h"
#include "tools/kvxpublish/platform/parallel.h"

namespace kvx::publish {
namespace {

std::string named(const std::wstring& path, const std::string& text) { return to_utf8(path) + ": " + text; }

void drop_file(const std::wstring& path) {
  uint32_t ignored = 0;
  static_cast<void>(delete_file_once(path, ignored));
}

// A file and what it shall hold; no content means that it shall not be there.
struct FileChange {
  std::wstring path;
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

bool put(const std::wstring& path, const std::optional<std::string>& content, uint32_t& error) {
  return content ? write_file_atomic(path, *content, error) : delete_file(path, error);
}

bool refuse_damaged(const std::wstring& content, Failure& failure) {
  return fail(
      ExitCode::failed,
      named(content, "is damaged: it has not the size of the content it is named after; delete it and pack again"),
      failure);
}

// All changes or none: when one fails, those before it are undone.
bool apply(std::span<FileChange> changes, Failure& failure) {
  for (FileChange& change : changes) {
    if (!read_former(change, failure)) return false;
  }
  for (auto change = changes.begin(); change != changes.end(); ++change) {
    const bool is_so_already = change->content == change->former && !is_folder(change->path);
    uint32_t error = 0;
    if (is_so_already || put(change->path, change->content, error)) continue;
    for (auto done = changes.begin(); done != change; ++done) {
      uint32_t ignored = 0;
      if (done->content != done->former) static_cast<void>(put(done->path, done->former, ignored));
    }
    return fail(ExitCode::failed, named(change->path, "cannot be written: " + error_text(error)), failure);
  }
  return true;
}

}  // namespace

SitePaths site_paths(const std::wstring& site, const std::string& channel) {
  SitePaths paths;
  paths.channel_folder = channel == "live" ? site : join_path(site, to_wide(channel));
  paths.manifest = join_path(paths.channel_folder, L"manifest.json");
  paths.signature = join_path(paths.channel_folder, L"manifest.sig");
  paths.files = join_path(site, L"files");
  paths.history = join_path(join_path(site, L"history"), to_wide(channel));
  return paths;
}

std::wstring history_manifest(const SitePaths& paths, uint64_t serial) {
  return join_path(paths.history, std::to_wstring(serial) + L".json");
}

std::wstring history_signature(const SitePaths& paths, uint64_t serial) {
  return join_path(paths.history, std::to_wstring(serial) + L".sig");
}

bool is_reserved_channel(const std::string& channel) { return channel == "files" || channel == "history"; }

SiteWriter::~SiteWriter() {
  if (!published_) {
    for (const auto& [sha256, size] : added_) drop_file(waiting_path(sha256));
    for (const std::string& sha256 : moved_in_) drop_file(content_path(sha256));
  }
  if (!waiting_.empty()) RemoveDirectoryW(long_path(waiting_).c_str());
  if (!published_) remove_empty_folders(made_folders_);
}

// A name that no earlier program has left behind.
bool SiteWriter::make_waiting_folder(Failure& failure) {
  const std::wstring site = parent_path(paths_.files);
  const std::wstring stem = L"content-" + std::to_wstring(GetCurrentProcessId());
  for (uint32_t number = 0;; ++number) {
    const std::wstring folder = join_path(site, stem + L'-' + std::to_wstring(number) + L".tmp");
    if (CreateDirectoryW(long_path(folder).c_str(), nullptr) != 0) {
      waiting_ = folder;
      return true;
    }
    const uint32_t error = GetLastError();
    if (error == ERROR_ALREADY_EXISTS) continue;
    return fail(ExitCode::failed, named(folder, "the folder cannot be made: " + error_text(error)), failure);
  }
}

bool SiteWriter::list_content(Failure& failure) {
  std::vector<FolderEntry> entries;
  if (!list_entries(paths_.files, entries, failure)) return false;
  for (const FolderEntry& entry : entries) {
    const std::string name = to_utf8(entry.name);
    if (is_sha256_hex(name)) there_[name] = entry.size;
  }
  return true;
}

bool SiteWriter::prepare(Failure& failure) {
  if (is_file(paths_.files)) return fail(ExitCode::failed, named(paths_.files, "is a file, not a folder"), failure);
  return make_folders(paths_.channel_folder, made_folders_, failure) &&
         make_folders(paths_.history, made_folders_, failure) && make_waiting_folder(failure) && list_content(failure);
}

std::wstring SiteWriter::waiting_path(const std::string& sha256) const { return join_path(waiting_, to_wide(sha256)); }

std::wstring SiteWriter::content_path(const std::string& sha256) const {
  return join_path(paths_.files, to_wide(sha256));
}

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

bool SiteWriter::claim(const std::string& sha256, uint64_t size, std::wstring& place) {
  const std::scoped_lock lock(mutex_);
  if (!added_.emplace(sha256, size).second) return false;
  added_bytes_ += size;
  place = waiting_path(sha256);
  return true;
}

std::wstring SiteWriter::temporary_path() {
  const std::scoped_lock lock(mutex_);
  return join_path(waiting_, std::to_wstring(temporary_count_++) + L".tmp");
}

bool SiteWriter::take_content(const std::wstring& temporary, const std::string& sha256, uint64_t size,
                              Failure& failure) {
  bool present = false;
  std::wstring place;
  const bool usable = has_content(sha256, size, present, failure);
  if (!usable || present || !claim(sha256, size, place)) {
    drop_file(temporary);
    return usable;
  }
  uint32_t error = 0;
  if (move_file(temporary, place, error)) return true;
  drop_file(temporary);
  return fail(ExitCode::failed, named(place, "cannot be written: " + error_text(error)), failure);
}

bool SiteWriter::add_content(const std::wstring& source, const std::string& sha256, uint64_t size, Failure& failure) {
  bool present = false;
  if (!has_content(sha256, size, present, failure)) return false;
  if (present) return true;
  const std::wstring temporary = temporary_path();
  uint32_t error = 0;
  if (!copy_file(source, temporary, error)) {
    drop_file(temporary);
    return fail(ExitCode::failed, named(source, "cannot be copied to the site: " + error_text(error)), failure);
  }
  clear_read_only(temporary);
  // Hashing the copy, not the source, also finds a file that changed since it was listed.
  std::string hash_error;
  if (hash_file(temporary, {}, hash_error) != sha256) {
    drop_file(temporary);
    return fail(ExitCode::failed, named(source, "changed while it was packed; pack again"), failure);
  }
  return take_content(temporary, sha256, size, failure);
}

// Somebody else brought the content meanwhile, and launchers may be loading it.
bool SiteWriter::keep_present(const std::string& sha256, uint64_t present_size, Failure& failure) const {
  if (present_size != added_.at(sha256)) return refuse_damaged(content_path(sha256), failure);
  drop_file(waiting_path(sha256));
  return true;
}

bool SiteWriter::move_in(const std::string& sha256, Failure& failure) {
  const std::wstring place = content_path(sha256);
  FileStamp present;
  if (file_stamp(place, present)) return keep_present(sha256, present.size, failure);
  uint32_t error = 0;
  if (!move_file(waiting_path(sha256), place, error)) {
    return fail(ExitCode::failed, named(place, "cannot be written: " + error_text(error)), failure);
  }
  const std::scoped_lock lock(mutex_);
  moved_in_.insert(sha256);
  return true;
}

// The first content of a site comes in at one stroke, with its folder.
bool SiteWriter::move_content_in(Failure& failure) {
  if (!is_folder(paths_.files)) {
    uint32_t error = 0;
    if (!move_file(waiting_, paths_.files, error)) {
      return fail(ExitCode::failed, named(paths_.files, "cannot be made: " + error_text(error)), failure);
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

bool SiteWriter::publish(uint64_t serial, const std::string& manifest, const std::string& signature_file,
                         Failure& failure) {
  const std::wstring kept = history_manifest(paths_, serial);
  std::string kept_bytes;
  if (is_file(kept) && (!read_file(kept, largest_manifest_bytes, kept_bytes) || kept_bytes != manifest)) {
    return fail(ExitCode::serial_conflict,
                named(kept, "another release was already published under this serial; take a larger one"), failure);
  }
  std::optional<std::string> signature;
  if (!signature_file.empty()) signature = signature_file;
  if (!move_content_in(failure)) return false;
  // A program that is ended in between leaves no release in the history without its signature.
  FileChange changes[] = {{history_signature(paths_, serial), signature, {}},
                          {kept, manifest, {}},
                          {paths_.manifest, manifest, {}},
                          {paths_.signature, signature, {}}};
  published_ = apply(changes, failure);
  return published_;
}

}  // namespace kvx::publish
