#include "tools/kvxpublish/commands/publish.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "foundations/text.h"
#include "manifest/manifest_limits.h"
#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/remote/content_check.h"
#include "tools/kvxpublish/site/channel_rule.h"
#include "tools/kvxpublish/site/content_copy.h"
#include "tools/kvxpublish/site/folder_site.h"
#include "tools/kvxpublish/site/release_history.h"
#include "tools/kvxpublish/site/set_aside.h"
#include "tools/kvxpublish/site/site.h"
#include "tools/kvxpublish/site/site_lock.h"
#include "tools/kvxpublish/site/trusted_release.h"

namespace kvx::publish {
namespace {

// One run of the command, used once.
//
// What visitors see meanwhile: content first, under names that nothing refers to yet. Then the manifest, and the
// signature right after it. A launcher asks for the manifest and then for the signature; with the signature last, it
// gets two that do not fit only if both of its requests fall between the two renames, or the renames between its
// requests, and then it tries again after 1.5 seconds. With the signature first, everyone who asks for the signature
// after that rename with the old manifest in hand would see a mismatch, and on a new channel a visitor would find no
// manifest, which is not tried again.
class Publishing {
 public:
  Publishing(const PublishRequest& request, Console& console, PublishSummary& summary, Failure& failure)
      : request_(request),
        target_(given_path(request.to)),
        paths_(site_paths(target_, request.channel)),
        console_(console),
        summary_(summary),
        failure_(failure) {}

  bool run() {
    return check_request() && load_release() && lock_.acquire(target_, failure_) && load_live() &&
           find_missing_content() && check_for_news() && check_missing_content() && write() && check_result();
  }

 private:
  bool fail_with(ExitCode code, std::string text) { return fail(code, std::move(text), failure_); }

  bool check_request() {
    const fs::path site = given_path(request_.site);
    if (is_same_path(site, target_)) {
      return fail_with(ExitCode::usage, path_text(target_) + ": is the site itself; name the folder to publish to");
    }
    if (lies_in(target_, site)) {
      return fail_with(ExitCode::usage, path_text(target_) + ": lies in the site itself; name a folder outside of it");
    }
    if (lies_in(site, target_)) {
      return fail_with(ExitCode::usage,
                       path_text(site) + ": the site lies in the folder to publish to; name another folder with --to");
    }
    return check_channel(request_.channel, failure_);
  }

  bool load_release() {
    const auto site = open_folder_site(request_.site);
    if (!read_trusted_release(*site, request_.channel, request_.keys, release_, summary_.signer, failure_))
      return false;
    summary_.version = release_.manifest.version;
    summary_.serial = static_cast<uint64_t>(release_.manifest.serial);
    return true;
  }

  bool load_live() {
    const auto target = open_folder_site(request_.to);
    Failure unreadable;
    const Search search = read_release(*target, request_.channel, live_, unreadable);
    has_live_ = search == Search::found;
    if (search == Search::failed && !request_.force) {
      return fail_with(unreadable.code, unreadable.text + "; publish all the same with --force");
    }
    is_same_ = has_live_ && live_.manifest_bytes == release_.manifest_bytes;
    return is_same_ || request_.force || check_serial(*target);
  }

  // Launchers have seen what is live and what was live before, and never go back.
  bool check_serial(const SiteReader& target) {
    std::vector<uint64_t> serials;
    if (!list_history(target_, request_.channel, serials, failure_)) return false;
    std::string largest_name;
    uint64_t largest = 0;
    if (!serials.empty()) {
      largest = serials.back();
      largest_name = target.name_of(history_manifest_name(request_.channel, largest));
    }
    if (has_live_ && std::cmp_greater_equal(live_.manifest.serial, largest)) {
      largest = static_cast<uint64_t>(live_.manifest.serial);
      largest_name = target.name_of(manifest_name(request_.channel));
    }
    if (largest_name.empty() || summary_.serial > largest || is_kept(largest)) return true;
    return fail_with(ExitCode::serial_conflict,
                     largest_name + ": serial " + std::to_string(largest) + " was published already and this is " +
                         std::to_string(summary_.serial) +
                         "; pack again with --previous naming that site, or publish all the same with --force");
  }

  // The largest serial is this very release, which was published and is not live any more.
  bool is_kept(uint64_t largest) const {
    std::string kept;
    return summary_.serial == largest && read_file(history_manifest(paths_, largest), largest_manifest_bytes, kept) &&
           kept == release_.manifest_bytes;
  }

  bool find_missing_content() {
    const auto target = open_folder_site(request_.to);
    std::vector<std::string> damaged;
    for (const Content& content : content_of(release_.manifest)) {
      uint64_t size = 0;
      const std::string name = blob_name(content.sha256);
      const Search search = target->find_size(name, size, failure_);
      if (search == Search::failed) return false;
      if (search == Search::found && size == content.size) {
        ++summary_.present_count;
        continue;
      }
      if (search == Search::found) damaged.push_back(content.sha256);
      missing_.push_back(content);
    }
    if (damaged.empty() || request_.replace_damaged) {
      damaged_ = std::move(damaged);
      return true;
    }
    return fail_with(ExitCode::failed,
                     target->name_of(blob_name(damaged.front())) +
                         ": is damaged, it has not the size of the content it is named after; replace it with "
                         "--replace-damaged" +
                         (damaged.size() == 1 ? "" : " (and " + std::to_string(damaged.size() - 1) + " more)"));
  }

  bool check_for_news() {
    const bool is_there = is_same_ && live_.signature == release_.signature && missing_.empty();
    return !is_there ||
           fail_with(ExitCode::nothing_to_do, path_text(paths_.manifest) + ": serial " +
                                                  std::to_string(summary_.serial) + " is published there already");
  }

  // Before anything is written.
  bool check_missing_content() {
    Problems problems;
    return check_content(request_.site, missing_, ContentDepth::sizes, console_, problems, failure_) &&
           problems.settle(request_.site, failure_);
  }

  // Copying takes minutes, and not every way to change the folder heeds the lock: what is live is looked at again.
  bool write() {
    std::vector<SetAside> aside;  // outlives the writer, which first takes away what it has added
    SiteWriter writer(paths_);
    if (!writer.prepare(failure_) || !copy_content(request_.site, missing_, writer, console_, failure_) ||
        !load_live() || !make_room(aside) ||
        !writer.publish(summary_.serial, release_.manifest_bytes, release_.signature, failure_)) {
      return false;
    }
    for (SetAside& former : aside) former.drop();
    summary_.copied_count = writer.added_count();
    summary_.copied_bytes = writer.added_bytes();
    return true;
  }

  // Nothing is overwritten, so that everything can come back.
  bool make_room(std::vector<SetAside>& aside) {
    std::vector<fs::path> paths;
    paths.reserve(damaged_.size());
    for (const std::string& sha256 : damaged_) paths.push_back(paths_.files / path_of(sha256));
    const fs::path kept = history_manifest(paths_, summary_.serial);
    std::string bytes;
    const bool is_taken =
        is_file(kept) && (!read_file(kept, largest_manifest_bytes, bytes) || bytes != release_.manifest_bytes);
    if (is_taken && request_.force) paths.push_back(kept);
    return std::ranges::all_of(paths, [&](const fs::path& path) { return aside.emplace_back().take(path, failure_); });
  }

  // What was there before is checked by its size alone; what was copied is read back.
  bool check_result() {
    const auto target = open_folder_site(request_.to);
    PublishedRelease published;
    NamedKey signer{};
    return read_trusted_release(*target, request_.channel, request_.keys, published, signer, failure_) &&
           check_published(content_of(published.manifest), ContentDepth::sizes) &&
           check_published(missing_, ContentDepth::digests);
  }

  bool check_published(const std::vector<Content>& content, ContentDepth depth) {
    Problems problems;
    if (check_content(request_.to, content, depth, console_, problems, failure_)) {
      return problems.settle(request_.to, failure_);
    }
    if (console_.interrupted()) failure_.text = "stopped; the release is published, but was not checked to the end";
    return false;
  }

  const PublishRequest& request_;
  const fs::path target_;
  const SitePaths paths_;
  Console& console_;
  PublishSummary& summary_;
  Failure& failure_;
  SiteLock lock_;
  PublishedRelease release_;
  PublishedRelease live_;
  bool has_live_ = false;
  bool is_same_ = false;
  std::vector<Content> missing_;      // at the target; damaged content too
  std::vector<std::string> damaged_;  // to be replaced
};

struct PublishOptions {
  PublishRequest request;
  std::string public_keys;
};

void report_publish(const PublishRequest& request, const PublishSummary& summary, Report& report) {
  report.add("channel", request.channel);
  report.add("version", summary.version);
  report.add("serial", summary.serial);
  report.add("key", identifier_text(summary.signer.key));
  report.add("copied_files", summary.copied_count);
  report.add("copied_bytes", summary.copied_bytes);
  report.add("present_files", summary.present_count);
}

bool run_publish(PublishOptions& options, const CommandContext& context, Failure& failure) {
  PublishSummary summary;
  if (!load_trusted_keys(options.public_keys, options.request.keys, failure) ||
      !publish_release(options.request, context.console, summary, failure)) {
    return false;
  }
  report_publish(options.request, summary, context.report);
  context.report.next_step("kvxpublish verify URL --channel " + options.request.channel +
                           public_keys_argument(options.public_keys) + " --full, with the URL that players use");
  return true;
}

}  // namespace

bool publish_release(const PublishRequest& request, Console& console, PublishSummary& summary, Failure& failure) {
  return Publishing(request, console, summary, failure).run();
}

RunCommand define_publish(CommandOptions command) {
  const auto options = std::make_shared<PublishOptions>();
  PublishRequest& request = options->request;
  add_site_folder(command, request.site);
  command.add_path("--to", request.to, "The folder that the server hands out; it is made when it is missing")
      .required()
      .type_name("DIR");
  add_channel_option(command, request.channel);
  add_public_keys_option(command, options->public_keys);
  command.add_flag("--force", request.force,
                   "Publish it whatever serial is live, or unreadable; players who have seen "
                   "a larger one will not take it");
  command.add_flag("--replace-damaged", request.replace_damaged, "Replace content in the folder that has not its size");
  command.footer("Example:\n  kvxpublish publish site --to /srv/www/patch --channel live");
  return [options](const CommandContext& context, Failure& failure) { return run_publish(*options, context, failure); };
}

}  // namespace kvx::publish
