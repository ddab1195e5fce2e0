#include "engine/installed_check.h"

#include <string_view>

#include "foundations/clock.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/paths.h"
#include "manifest/file_digest.h"
#include "manifest/managed_path.h"

namespace kvx {
namespace {

// One check, used once.
class InstalledCheck {
 public:
  InstalledCheck(const InstalledCheckContext& context, const Manifest& manifest, std::vector<uint64_t>& to_replace)
      : context_(context), manifest_(manifest), to_replace_(to_replace) {}

  bool run() {
    if (manifest_.files.empty()) return true;
    for (uint64_t index = 0; index < manifest_.files.size(); ++index) {
      if (context_.stop.requested()) return false;
      judge_by_stamp(index);
    }
    if (to_hash_.empty()) return true;
    announce_hashing();
    const bool finished = hash_files();
    static_cast<void>(context_.cache.save(&context_.stop));
    if (finished) context_.ui.end_progress();
    return finished;
  }

 private:
  bool hash_files() {
    for (const uint64_t index : to_hash_) {
      if (!judge_by_content(index)) return false;
      save_new_digests();
    }
    return true;
  }

  // Saves after every file, so that the work of a long check survives a crash, but not while the saves have taken more
  // than a twentieth of the check's time so far. That also bounds the wait for a cache that another program holds.
  void save_new_digests() {
    constexpr uint64_t check_time_per_save_time = 20;
    if (!has_new_digests_) return;
    const uint32_t now_ms = tick_count_ms();
    if (saving_ms_ * check_time_per_save_time > now_ms - start_ms_) return;
    has_new_digests_ = !context_.cache.save(&context_.stop);
    saving_ms_ += tick_count_ms() - now_ms;
  }

  // Valid until the next call.
  [[nodiscard]] const std::wstring& full_path(const ManifestFile& file) {
    path_.resize(folder_chars_);
    append_native_path(file.path, path_);
    return path_;
  }

  // What lies in a missing folder is not asked for one by one.
  bool has_stamp(const ManifestFile& file, FileStamp& stamp) {
    const std::string_view path = file.path;
    const std::string_view folder = path.substr(0, path.rfind('/') + 1);
    if (!folder.empty() && folder == missing_folder_) return false;
    bool folder_is_missing = false;
    if (file_stamp(full_path(file), stamp, folder_is_missing)) return true;
    if (folder_is_missing) missing_folder_ = folder;
    return false;
  }

  void judge_by_stamp(uint64_t index) {
    const ManifestFile& file = manifest_.files[index];
    FileStamp stamp;
    if (!has_stamp(file, stamp) || stamp.size != file.size) {
      to_replace_.push_back(index);
      return;
    }
    const std::string* known =
        context_.repair ? nullptr : context_.cache.lookup(file.path, stamp.size, stamp.last_write_time);
    if (known == nullptr) {
      to_hash_.push_back(index);
      check_bytes_ += file.size;
    } else if (*known != file.sha256) {
      to_replace_.push_back(index);
    }
  }

  void announce_hashing() {
    log::write("checking %u installed files (%llu bytes)", static_cast<unsigned>(to_hash_.size()), check_bytes_);
    context_.ui.start_progress(ProgressMode::checking, check_bytes_);
    context_.ui.show_status(L"Checking installed files...", L"");
  }

  // False when a stop was requested.
  bool judge_by_content(uint64_t index) {
    const ManifestFile& file = manifest_.files[index];
    const std::wstring& path = full_path(file);
    FileStamp stamp;
    const bool has_stamp = file_stamp(path, stamp);
    std::string error = "SHA-256 not available";  // unless the file itself has another reason
    const std::string digest = hasher_.hash(
        path,
        [this](uint64_t bytes) {
          context_.ui.progress_done += bytes;
          if (context_.stop.requested()) return false;
          save_new_digests();  // of earlier files: this one may take minutes
          return true;
        },
        error);
    if (context_.stop.requested()) return false;
    if (digest.empty()) {
      log::write("cannot read %s: %s", file.path.c_str(), error.c_str());
    } else if (has_stamp) {
      context_.cache.put(file.path, stamp.size, stamp.last_write_time, digest);
      has_new_digests_ = true;
    }
    if (digest != file.sha256) to_replace_.push_back(index);
    return true;
  }

  const InstalledCheckContext& context_;
  const Manifest& manifest_;
  std::vector<uint64_t>& to_replace_;
  std::vector<uint64_t> to_hash_;
  uint64_t check_bytes_ = 0;

  const uint32_t start_ms_ = tick_count_ms();
  uint64_t saving_ms_ = 0;  // of all saves so far
  bool has_new_digests_ = false;

  FileHasher hasher_;
  std::wstring path_ = long_path(context_.install_dir) + L'\\';
  const size_t folder_chars_ = path_.size();
  std::string_view missing_folder_;  // the last one seen, of a path in the manifest
};

}  // namespace

bool check_installed_files(const InstalledCheckContext& context, const Manifest& manifest,
                           std::vector<uint64_t>& to_replace) {
  return InstalledCheck(context, manifest, to_replace).run();
}

}  // namespace kvx
