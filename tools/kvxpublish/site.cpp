#include "tools/kvxpublish/site.h"

#include <windows.h>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "manifest/file_digest.h"
#include "tools/kvxpublish/manifest_text.h"

namespace kvx::publish {
namespace {

std::string named(const std::wstring& path, const std::string& text) { return to_utf8(path) + ": " + text; }

void drop_file(const std::wstring& path) {
  uint32_t ignored = 0;
  static_cast<void>(delete_file_once(path, ignored));
}

// A file's former content, to be put back when a later step fails.
struct FormerFile {
  bool existed = false;
  std::string bytes;
};

bool keep_former(const std::wstring& path, FormerFile& former) {
  former.existed = is_file(path);
  return !former.existed || read_file(path, manifest_limit_bytes, former.bytes);
}

void put_back(const std::wstring& path, const FormerFile& former) {
  if (former.existed) {
    static_cast<void>(write_file_atomic(path, former.bytes));
  } else {
    drop_file(path);
  }
}

}  // namespace

SitePaths site_paths(const std::wstring& site, const std::string& channel) {
  SitePaths paths;
  paths.channel_folder = channel == "live" ? site : join_path(site, to_wide(channel));
  paths.manifest = join_path(paths.channel_folder, L"manifest.json");
  paths.signature = join_path(paths.channel_folder, L"manifest.sig");
  paths.files = join_path(site, L"files");
  return paths;
}

SiteWriter::~SiteWriter() {
  if (published_) return;
  for (const std::wstring& path : added_) drop_file(path);
  for (const std::wstring& folder : made_folders_) RemoveDirectoryW(long_path(folder).c_str());
}

bool SiteWriter::make_folder(const std::wstring& folder, Failure& failure) {
  std::vector<std::wstring> missing;
  for (std::wstring path = folder; !path.empty() && !is_folder(path); path = parent_path(path)) missing.push_back(path);
  uint32_t error = 0;
  const bool made = create_folders(folder, error);
  std::erase_if(missing, [](const std::wstring& path) { return !is_folder(path); });
  made_folders_.insert(made_folders_.begin(), missing.begin(), missing.end());
  return made || fail(ExitCode::failed, named(folder, "the folder cannot be made: " + error_text(error)), failure);
}

bool SiteWriter::prepare(Failure& failure) {
  return make_folder(paths_.files, failure) && make_folder(paths_.channel_folder, failure);
}

bool SiteWriter::add_content(const std::wstring& source, const std::string& sha256, uint64_t size, Failure& failure) {
  const std::wstring target = join_path(paths_.files, to_wide(sha256));
  FileStamp stamp;
  if (file_stamp(target, stamp)) {
    if (stamp.size == size) return true;
    return fail(ExitCode::failed,
                named(target,
                      "is damaged: it has not the size of the content it is named after; delete it and pack "
                      "again"),
                failure);
  }
  const std::wstring temporary = target + L".tmp";
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
  if (!move_file(temporary, target, error)) {
    drop_file(temporary);
    return fail(ExitCode::failed, named(target, "cannot be written: " + error_text(error)), failure);
  }
  added_.push_back(target);
  added_bytes_ += size;
  return true;
}

bool SiteWriter::publish(const std::string& manifest, const std::string& signature_file, Failure& failure) {
  FormerFile former_manifest;
  FormerFile former_signature;
  if (!keep_former(paths_.manifest, former_manifest) || !keep_former(paths_.signature, former_signature)) {
    return fail(ExitCode::failed, named(paths_.channel_folder, "the published release cannot be read"), failure);
  }
  if (!write_file_atomic(paths_.manifest, manifest)) {
    return fail(ExitCode::failed, named(paths_.manifest, "cannot be written"), failure);
  }
  uint32_t error = 0;
  const bool signature_placed = signature_file.empty() ? delete_file(paths_.signature, error)
                                                       : write_file_atomic(paths_.signature, signature_file);
  if (!signature_placed) {
    put_back(paths_.manifest, former_manifest);
    put_back(paths_.signature, former_signature);
    return fail(ExitCode::failed, named(paths_.signature, "cannot be written"), failure);
  }
  published_ = true;
  return true;
}

}  // namespace kvx::publish
