#include "tools/kvxpublish/site/prune_plan.h"

#include <algorithm>
#include <set>
#include <unordered_set>
#include <utility>

#include "foundations/text.h"
#include "manifest/json.h"
#include "manifest/manifest_limits.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/folders.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/site/folder_site.h"
#include "tools/kvxpublish/site/release_content.h"
#include "tools/kvxpublish/site/release_history.h"
#include "tools/kvxpublish/site/site.h"

namespace kvx::publish {
namespace {

constexpr uint64_t day = 864000000000;  // 100 ns units

constexpr std::string_view temporary_ending = ".tmp";
constexpr std::string_view waiting_folder_start = "content-";

// In any spelling, because a site may come from a system that does not tell them apart.
std::string lower_name(const FolderEntry& entry) { return to_lower_ascii(path_text(entry.name)); }

bool is_manifest(const FolderEntry& entry) { return lower_name(entry) == "manifest.json"; }
bool is_signature(const FolderEntry& entry) { return lower_name(entry) == "manifest.sig"; }

// A link to a folder counts as one: launchers are served through it.
bool leads_to_folder(const fs::path& parent, const FolderEntry& entry) {
  return entry.kind == FileKind::folder || (entry.kind == FileKind::link && is_folder(parent / entry.name));
}

// A whole document that does not even name the product. One that breaks off may be a release all the same.
bool is_of_another_program(const fs::path& path) {
  std::string text;
  std::string error;
  JsonDocument document;
  return read_file(path, largest_manifest_bytes, text) && parse_json(text, document, error) &&
         document.root().find_member("product") == nullptr;
}

// One look at a site, used once.
class Planner {
 public:
  Planner(const fs::path& site, uint64_t keep, uint64_t now, PrunePlan& plan, Failure& failure)
      : site_(site),
        keep_(keep),
        now_(now),
        plan_(plan),
        failure_(failure),
        reader_(open_folder_site(path_text(site))) {}

  bool run() { return find_channels() && judge_releases() && judge_content() && find_temporaries(); }

 private:
  // Temporary files only matter when there is something that they may belong to.
  bool find_channels() {
    std::vector<FolderEntry> entries;
    if (!list_entries(site_, entries, failure_)) return false;
    std::set<std::string> channels;
    for (const FolderEntry& entry : entries) {
      if (is_manifest(entry)) channels.insert("live");
      const std::string name = lower_name(entry);
      if (!leads_to_folder(site_, entry) || !is_channel_name(name) || is_reserved_channel(name)) continue;
      bool is_channel = false;
      if (!judge_folder(name, site_ / entry.name, is_channel)) return false;
      if (!is_channel) continue;
      if (!check_spelling(site_ / entry.name, name)) return false;
      channels.insert(name);
    }
    if (channels.empty()) {
      return fail(ExitCode::failed, path_text(site_) + ": nothing is published there; name the site's own folder",
                  failure_);
    }
    return find_past_channels(channels);
  }

  // Windows takes folders in any spelling for a channel's. Where the file system does not, its releases would not be
  // found, and their content would be deleted.
  bool check_spelling(const fs::path& folder, const std::string& name) {
    return is_same_path(folder.filename(), path_of(name)) ||
           fail(ExitCode::failed,
                path_text(folder) + ": a channel's folder must be called \"" + name +
                    "\" here; rename it, or move it out of the site",
                failure_);
  }

  // Other programs have files of that name, too. Only what is certainly theirs is passed over: the content that a
  // channel needs would be deleted otherwise.
  bool judge_folder(const std::string& name, const fs::path& folder, bool& is_channel) {
    std::vector<FolderEntry> entries;
    if (!list_entries(folder, entries, failure_)) return false;
    is_channel = std::ranges::any_of(entries, is_manifest) &&
                 (std::ranges::any_of(entries, is_signature) || is_folder(site_ / "history" / path_of(name)) ||
                  !is_of_another_program(folder / "manifest.json"));
    return true;
  }

  // Channels whose manifest was taken away still have their history.
  bool find_past_channels(std::set<std::string>& channels) {
    std::vector<FolderEntry> entries;
    if (!list_entries(site_ / "history", entries, failure_)) return false;
    for (const FolderEntry& entry : entries) {
      const std::string name = lower_name(entry);
      if (!leads_to_folder(site_ / "history", entry) || !is_channel_name(name)) continue;
      if (!check_spelling(site_ / "history" / entry.name, name)) return false;
      channels.insert(name);
    }
    plan_.channels.assign(channels.begin(), channels.end());
    return true;
  }

  bool judge_releases() {
    return std::ranges::all_of(plan_.channels, [this](const std::string& channel) { return judge_channel(channel); });
  }

  bool judge_channel(const std::string& channel) {
    PublishedRelease live;
    const Search search = read_release(*reader_, channel, live, failure_);
    std::vector<uint64_t> serials;
    if (search == Search::failed && channel != "live" && failure_.code == ExitCode::refused) {
      failure_.text += "; publish the channel again, or move the folder out of the site if it is no channel";
    }
    if (search == Search::failed || !list_history(site_, channel, serials, failure_)) return false;
    if (search == Search::found) keep_release(live);
    std::vector<uint64_t> kept;
    if (!choose_kept(channel, serials, live, kept)) return false;
    for (const uint64_t serial : serials) {
      PublishedRelease release;
      if (!read_history(*reader_, channel, serial, release, failure_)) return false;
      const bool is_live = release.manifest_bytes == live.manifest_bytes;
      if (is_live) continue;  // counted already
      if (std::ranges::find(kept, serial) != kept.end()) {
        keep_release(release);
      } else {
        drop_release(channel, serial, release);
      }
    }
    return drop_lone_signatures(channel, serials);
  }

  // The newest. A release without a signature that is not live either was never published as a whole.
  bool choose_kept(const std::string& channel, const std::vector<uint64_t>& serials, const PublishedRelease& live,
                   std::vector<uint64_t>& kept) {
    std::vector<uint64_t> with_signature;
    if (!list_history_signatures(site_, channel, with_signature, failure_)) return false;
    for (auto serial = serials.rbegin(); serial != serials.rend() && kept.size() < keep_; ++serial) {
      const bool is_live = !live.manifest_bytes.empty() && std::cmp_equal(*serial, live.manifest.serial);
      if (is_live || std::ranges::binary_search(with_signature, *serial)) kept.push_back(*serial);
    }
    return true;
  }

  // A program that was ended early has left them.
  bool drop_lone_signatures(const std::string& channel, const std::vector<uint64_t>& serials) {
    std::vector<uint64_t> with_signature;
    if (!list_history_signatures(site_, channel, with_signature, failure_)) return false;
    for (const uint64_t serial : with_signature) {
      uint64_t size = 0;
      const std::string name = history_signature_name(channel, serial);
      if (std::ranges::binary_search(serials, serial)) continue;
      if (reader_->find_size(name, size, failure_) == Search::failed) return false;
      plan_.history.push_back({name, size});
    }
    return true;
  }

  void keep_release(const PublishedRelease& release) {
    ++plan_.kept_releases;
    for (const Content& content : content_of(release.manifest)) needed_.insert(content.sha256);
  }

  void drop_release(const std::string& channel, uint64_t serial, const PublishedRelease& release) {
    plan_.history.push_back({history_manifest_name(channel, serial), release.manifest_bytes.size()});
    if (release.signature.empty()) return;
    plan_.history.push_back({history_signature_name(channel, serial), release.signature.size()});
  }

  bool judge_content() {
    std::vector<FolderEntry> entries;
    if (!list_entries(site_ / "files", entries, failure_)) return false;
    for (const FolderEntry& entry : entries) {
      const std::string name = path_text(entry.name);
      if (entry.kind == FileKind::folder || !is_sha256_hex(name)) continue;
      if (needed_.contains(name)) {
        ++plan_.kept_content;
      } else {
        plan_.content.push_back({blob_name(name), entry.stamp.size});
      }
    }
    return true;
  }

  bool find_temporaries() {
    std::vector<std::string> folders = {"", "files/"};
    for (const std::string& channel : plan_.channels) {
      folders.push_back("history/" + channel + '/');
      if (channel != "live") folders.push_back(channel + '/');
    }
    return std::ranges::all_of(folders, [this](const std::string& folder) { return find_temporaries(folder); });
  }

  [[nodiscard]] bool is_old(const FolderEntry& entry) const { return entry.stamp.last_write_time + day < now_; }

  bool find_temporaries(const std::string& folder) {
    std::vector<FolderEntry> entries;
    if (!list_entries(site_ / path_of(folder), entries, failure_)) return false;
    for (const FolderEntry& entry : entries) {
      const std::string own_name = path_text(entry.name);
      if (!own_name.ends_with(temporary_ending)) continue;
      const std::string name = folder + own_name;
      if (entry.kind == FileKind::folder) {
        if (own_name.starts_with(waiting_folder_start) && !add_waiting_folder(name)) return false;
      } else if (is_old(entry)) {
        plan_.temporaries.push_back({name, entry.stamp.size});
      }
    }
    return true;
  }

  // Content that waits to be published: nobody's, once the site's lock is held.
  bool add_waiting_folder(const std::string& folder) {
    std::vector<FolderEntry> entries;
    if (!list_entries(site_ / path_of(folder), entries, failure_)) return false;
    for (const FolderEntry& entry : entries) {
      plan_.temporaries.push_back({folder + '/' + path_text(entry.name), entry.stamp.size});
    }
    plan_.empty_folders.push_back(folder);
    return true;
  }

  const fs::path& site_;
  const uint64_t keep_;
  const uint64_t now_;
  PrunePlan& plan_;
  Failure& failure_;
  const std::unique_ptr<SiteReader> reader_;
  std::unordered_set<std::string> needed_;  // digests
};

}  // namespace

bool plan_prune(const fs::path& site, uint64_t keep, uint64_t now, PrunePlan& plan, Failure& failure) {
  return Planner(site, keep, now, plan, failure).run();
}

}  // namespace kvx::publish
