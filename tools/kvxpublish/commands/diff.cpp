#include "tools/kvxpublish/commands/diff.h"

#include <algorithm>
#include <memory>
#include <unordered_set>

#include "foundations/text.h"
#include "foundations/version_number.h"
#include "manifest/managed_path.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/release/content_pass.h"
#include "tools/kvxpublish/release/release_differences.h"
#include "tools/kvxpublish/remote/site_opener.h"
#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {
namespace {

struct DiffOptions {
  std::string site;
  std::string against;
  std::string channel;
  std::vector<std::string> exclude;
};

// What is compared with the release before.
struct NextRelease {
  Manifest manifest;
  bool is_game_folder = false;  // then the manifest has nothing but files
};

bool measure_game(const DiffOptions& options, Console& console, NextRelease& next, Report& report, Failure& failure) {
  const fs::path folder = given_path(options.site);
  if (!is_folder(folder)) return fail(ExitCode::failed, path_text(folder) + ": there is no such folder", failure);
  std::vector<GameFile> files;
  std::vector<std::string> unused;
  if (!list_game_folder(folder, options.exclude, files, unused, failure) || !measure_files(files, console, failure)) {
    return false;
  }
  for (const std::string& pattern : unused) report.note("--exclude " + pattern + " matched nothing");
  next.is_game_folder = true;
  for (const GameFile& file : files) {
    next.manifest.files.push_back({file.path, file.size, Sha256Text(file.sha256)});
  }
  return true;
}

bool nothing_published(const SiteReader& site, const std::string& channel, Failure& failure) {
  return fail(ExitCode::failed,
              site.name_of(manifest_name(channel)) + ": nothing is published on channel \"" + channel +
                  "\"; name another with --channel",
              failure);
}

// Games may have a manifest.json of their own.
bool may_be_site(const std::string& location) {
  const fs::path folder = given_path(location);
  return is_url(location) || is_folder(folder / "files") || is_folder(folder / "history");
}

bool load_next(const DiffOptions& options, const CommandContext& context, NextRelease& next, Failure& failure) {
  std::unique_ptr<SiteReader> site;
  PublishedRelease release;
  if (!open_site(options.site, site, failure)) return false;
  const bool url = is_url(options.site);
  const Search search =
      may_be_site(options.site) ? read_release(*site, options.channel, release, failure) : Search::absent;
  if (search == Search::failed) return false;
  if (search == Search::found) {
    if (!url) context.report.note(path_text(given_path(options.site)) + " was taken for a site");
    next.manifest = std::move(release.manifest);
    return true;
  }
  if (url) return nothing_published(*site, options.channel, failure);
  context.report.note(path_text(given_path(options.site)) + " was taken for a game's folder");
  return measure_game(options, context.console, next, context.report, failure);
}

bool load_former(const DiffOptions& options, PublishedRelease& former, Failure& failure) {
  std::unique_ptr<SiteReader> site;
  if (!open_site(options.against, site, failure)) return false;
  const Search search = read_release(*site, options.channel, former, failure);
  return search == Search::found || (search == Search::absent && nothing_published(*site, options.channel, failure));
}

void report_files(const ReleaseDifferences& differences, Report& report) {
  for (const char* list : {"new", "changed", "removed"}) report.add_list(list, {});
  for (const ManifestFile& file : differences.added)
    report.add_record("new", {{"path", file.path}, {"size", file.size}});
  for (const ChangedFile& file : differences.changed) {
    report.add_record("changed", {{"path", file.path}, {"size", file.size}, {"former_size", file.former_size}});
  }
  for (const ManifestFile& file : differences.removed) {
    report.add_record("removed", {{"path", file.path}, {"size", file.size}});
  }
  report.add("new_files", differences.added.size());
  report.add("changed_files", differences.changed.size());
  report.add("removed_files", differences.removed.size());
  report.add("same_files", differences.same_count);
}

void report_downloads(const ReleaseDifferences& differences, const Manifest& next, Report& report) {
  Manifest files_alone;
  files_alone.files = next.files;
  const std::vector<Content> install = content_of(files_alone);
  report.add("update_downloads", differences.downloads.size());
  report.add("update_bytes", total_bytes(differences.downloads));
  report.add("install_downloads", install.size());
  report.add("install_bytes", total_bytes(install));
}

// A player of the release before fetches a newer launcher as well.
void report_launcher(const Manifest& next, const Manifest& former, Report& report) {
  const LauncherEntry& launcher = next.launcher;
  const bool is_newer =
      launcher.present && (!former.launcher.present || compare_versions(launcher.version, former.launcher.version) > 0);
  report.add("launcher_bytes", is_newer ? launcher.size : uint64_t{0});
}

void note_files_that_stay(const ReleaseDifferences& differences, const NextRelease& next, Report& report) {
  if (next.is_game_folder) return;
  std::unordered_set<std::wstring> removals;
  for (const ManifestRemoval& removal : next.manifest.remove) removals.insert(path_identity(removal.native_path()));
  const auto count = std::ranges::count_if(differences.removed, [&](const ManifestFile& file) {
    return !removals.contains(path_identity(file.native_path()));
  });
  if (count == 0) return;
  report.note(std::to_string(count) +
              " of the removed files are not in the removal list of the release and stay with the players; pack it "
              "with --previous");
}

bool run_diff(const DiffOptions& options, const CommandContext& context, Failure& failure) {
  NextRelease next;
  PublishedRelease former;
  if (!load_former(options, former, failure) || !load_next(options, context, next, failure)) return false;
  const ReleaseDifferences differences = compare_releases(next.manifest, former.manifest);
  report_files(differences, context.report);
  report_downloads(differences, next.manifest, context.report);
  report_launcher(next.manifest, former.manifest, context.report);
  note_files_that_stay(differences, next, context.report);
  return true;
}

}  // namespace

RunCommand define_diff(CommandOptions command) {
  const auto options = std::make_shared<DiffOptions>();
  command.add_location("SITE", options->site, "What is new: a site, or the folder of a game, whose files are then read")
      .required()
      .type_name("SITE|DIR");
  command.add_location("--against", options->against, "The site with the release before, a folder or a URL")
      .required()
      .type_name("SITE");
  add_channel_option(command, options->channel);
  command.add_list("--exclude", options->exclude, "Files or folders of the game to leave out, as for pack")
      .type_name("GLOB");
  command.footer("Example:\n  kvxpublish diff build\\game --against https://updates.example.org/patch/");
  return [options](const CommandContext& context, Failure& failure) { return run_diff(*options, context, failure); };
}

}  // namespace kvx::publish
