#include "engine/install.h"

#include <windows.h>

#include <map>
#include <set>
#include <string_view>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/log.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "ui/prompts.h"

namespace kvx {
namespace {

// Indices of files with the same content, by digest.
using ContentGroups = std::map<std::string_view, std::vector<uint64_t>>;

// One install, used once.
class Install {
 public:
  Install(const InstallContext& context, const Manifest& manifest, const std::vector<uint64_t>& to_place,
          std::string& reason)
      : context_(context), manifest_(manifest), to_place_(to_place), reason_(reason) {}

  bool run() {
    context_.ui.start_progress(ProgressMode::files, to_place_.size() + manifest_.remove.size());
    context_.ui.show_status(L"Installing the update...", L"");
    if (!mark_unfinished() || !place_files() || !remove_files()) return false;
    static_cast<void>(context_.cache.save());
    return true;
  }

 private:
  // On the disk before any file is touched, so that the next run notices an install that never ended.
  bool mark_unfinished() {
    context_.state.set(state_key::complete, "0");
    context_.state.set(state_key::updating_serial, std::to_string(manifest_.serial));
    uint32_t error = 0;
    while (!context_.state.save(error)) {
      if (!ask_to_retry(replacing, ".kvx_patch/state.txt", error)) return false;
    }
    return true;
  }

  [[nodiscard]] ContentGroups group_by_content() const {
    ContentGroups groups;
    for (const uint64_t index : to_place_) groups[manifest_.files[index].sha256].push_back(index);
    return groups;
  }

  bool place_files() {
    for (const auto& [digest, indices] : group_by_content()) {
      for (const uint64_t index : indices) {
        const bool is_last_use = index == indices.back();
        if (!place_file(manifest_.files[index], is_last_use)) return false;
      }
    }
    return true;
  }

  [[nodiscard]] std::wstring destination(const std::wstring& native_path) const {
    return context_.install_dir + L'\\' + native_path;
  }

  bool place_file(const ManifestFile& file, bool is_last_use) {
    const std::wstring target = destination(file.native_path());
    uint32_t error = 0;
    while (!place_in_folder(file, target, is_last_use, error)) {
      if (!ask_to_retry(replacing, file.path, error)) {
        return false;
      }
    }
    FileStamp stamp;
    if (file_stamp(target, stamp)) {
      context_.cache.put(file.path, stamp.size, stamp.last_write_time, std::string(file.sha256));
    }
    ++context_.ui.progress_done;
    return true;
  }

  // A known folder may be gone again; it is made again before anybody is asked.
  bool place_in_folder(const ManifestFile& file, const std::wstring& target, bool is_last_use, uint32_t& error) {
    if (try_to_place(file, target, is_last_use, error)) return true;
    known_folders_.clear();
    return error == ERROR_PATH_NOT_FOUND && try_to_place(file, target, is_last_use, error);
  }

  // The last file with this content takes the blob itself; earlier ones get a copy, made beside them.
  bool try_to_place(const ManifestFile& file, const std::wstring& target, bool is_last_use, uint32_t& error) {
    if (!ensure_folder(parent_path(target), error)) return false;
    const std::wstring blob = context_.store.blob_path(std::string(file.sha256));
    if (is_last_use) return move_file(blob, target, error);
    const std::wstring copy = target + L".copy";
    clear_read_only(copy);  // one left behind may be a copy of a read-only file
    return copy_file(blob, copy, error) && flush_file(copy, error) && move_file(copy, target, error);
  }

  // Asks for each folder once.
  bool ensure_folder(const std::wstring& path, uint32_t& error) {
    if (known_folders_.contains(path)) return true;
    if (!create_folders(path, error)) return false;
    known_folders_.insert(path);
    return true;
  }

  bool remove_files() {
    for (const ManifestRemoval& removal : manifest_.remove) {
      const std::wstring target = destination(removal.native_path());
      if (is_file(target) && !remove_file(removal, target)) return false;
      context_.cache.drop(removal.path);
      ++context_.ui.progress_done;
    }
    return true;
  }

  bool remove_file(const ManifestRemoval& removal, const std::wstring& target) {
    uint32_t error = 0;
    while (!delete_file(target, error)) {
      if (!ask_to_retry(removing, removal.path, error)) {
        return false;
      }
    }
    log::write("removed %s", removal.path.c_str());
    return true;
  }

  struct FailureTexts {
    const char* log_verb;
    const wchar_t* question;
    const char* reason;
  };
  static constexpr FailureTexts replacing = {"replace", L"Could not replace the file\n", "could not replace "};
  static constexpr FailureTexts removing = {"remove", L"Could not delete the old file\n", "could not delete "};

  // False when the user gives up; the reason is then set.
  bool ask_to_retry(const FailureTexts& texts, const std::string& path, uint32_t error) {
    const std::string words = error_text(error);
    log::write("%s %s failed: %s", texts.log_verb, path.c_str(), words.c_str());
    const std::wstring question = texts.question + to_wide(path) + L"\n(" + to_wide(words) +
                                  L")\n\nClose the game and any program that uses this file, then press Retry.";
    if (context_.ui.message_box(question, style_retry) == button_retry) return true;
    reason_ = texts.reason + path + ": " + words;
    return false;
  }

  const InstallContext& context_;
  const Manifest& manifest_;
  const std::vector<uint64_t>& to_place_;
  std::string& reason_;
  std::set<std::wstring> known_folders_;  // that are there
};

}  // namespace

bool install(const InstallContext& context, const Manifest& manifest, const std::vector<uint64_t>& to_place,
             std::string& reason) {
  return Install(context, manifest, to_place, reason).run();
}

}  // namespace kvx
