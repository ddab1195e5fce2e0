#include "engine/installed_check.h"

#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/text.h"
#include "manifest/file_digest.h"

namespace kvx {
namespace {

// One check, used once.
class InstalledCheck {
 public:
  InstalledCheck(const InstalledCheckContext& context, const Manifest& manifest, std::vector<uint64_t>& to_replace)
      : context_(context), manifest_(manifest), to_replace_(to_replace) {}

  bool run() {
    if (manifest_.files.empty()) return true;
    for (uint64_t index = 0; index < manifest_.files.size(); ++index) judge_by_stamp(index);
    if (to_hash_.empty()) return true;
    announce_hashing();
    for (const uint64_t index : to_hash_) {
      if (!judge_by_content(index)) return false;
      save_cache();
    }
    static_cast<void>(context_.cache.save(&context_.stop));
    context_.ui.end_progress();
    return true;
  }

 private:
  // After every file, so that the work of a long check survives a cancel or a crash. A cache that something holds takes
  // seconds to fail; it is not waited for again before the end.
  void save_cache() {
    if (cache_can_be_saved_) cache_can_be_saved_ = context_.cache.save(&context_.stop);
  }

  [[nodiscard]] std::wstring full_path(const ManifestFile& file) const {
    return context_.install_dir + L'\\' + file.native_path;
  }

  void judge_by_stamp(uint64_t index) {
    const ManifestFile& file = manifest_.files[index];
    FileStamp stamp;
    if (!file_stamp(full_path(file), stamp) || stamp.size != file.size) {
      to_replace_.push_back(index);
      return;
    }
    const std::string* known =
        context_.repair ? nullptr : context_.cache.lookup(to_utf8(file.native_path), stamp.size, stamp.last_write_time);
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
    const std::wstring path = full_path(file);
    FileStamp stamp;
    const bool has_stamp = file_stamp(path, stamp);
    std::string error = "SHA-256 not available";  // unless the file itself has another reason
    const std::string digest = hash_file(
        path,
        [this](uint64_t bytes) {
          context_.ui.progress_done += bytes;
          return !context_.stop.requested();
        },
        error);
    if (context_.stop.requested()) return false;
    if (digest.empty()) {
      log::write("cannot read %s: %s", file.path.c_str(), error.c_str());
    } else if (has_stamp) {
      context_.cache.put(to_utf8(file.native_path), stamp.size, stamp.last_write_time, digest);
    }
    if (digest != file.sha256) to_replace_.push_back(index);
    return true;
  }

  const InstalledCheckContext& context_;
  const Manifest& manifest_;
  std::vector<uint64_t>& to_replace_;
  std::vector<uint64_t> to_hash_;
  uint64_t check_bytes_ = 0;
  bool cache_can_be_saved_ = true;
};

}  // namespace

bool check_installed_files(const InstalledCheckContext& context, const Manifest& manifest,
                           std::vector<uint64_t>& to_replace) {
  return InstalledCheck(context, manifest, to_replace).run();
}

}  // namespace kvx
