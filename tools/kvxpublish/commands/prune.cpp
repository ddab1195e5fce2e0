#include "tools/kvxpublish/commands/prune.h"

#include <memory>

#include "foundations/text.h"
#include "manifest/managed_path.h"
#include "tools/kvxpublish/platform/files.h"
#include "tools/kvxpublish/platform/paths.h"
#include "tools/kvxpublish/platform/system.h"
#include "tools/kvxpublish/site/prune_plan.h"
#include "tools/kvxpublish/site/site_lock.h"

namespace kvx::publish {
namespace {

struct PruneOptions {
  std::string site;
  uint64_t keep = 0;
  bool yes = false;
};

uint64_t total_bytes(const std::vector<PrunableFile>& files) {
  uint64_t bytes = 0;
  for (const PrunableFile& file : files) bytes += file.size;
  return bytes;
}

bool delete_files(const fs::path& site, const std::vector<PrunableFile>& files, const Console& console,
                  Failure& failure) {
  for (const PrunableFile& file : files) {
    if (console.interrupted()) {
      return fail(ExitCode::failed, "stopped; what is not deleted yet is left to the next time", failure);
    }
    const fs::path path = site / path_of(file.name);
    std::string reason;
    if (delete_file(path, reason)) continue;
    return fail(
        ExitCode::failed,
        path_text(path) + ": cannot be deleted: " + reason + "; what is not deleted yet is left to the next time",
        failure);
  }
  return true;
}

// Releases go before their content, so that the history never names content that is gone.
bool carry_out(const fs::path& site, const PrunePlan& plan, const Console& console, Failure& failure) {
  if (!delete_files(site, plan.history, console, failure) || !delete_files(site, plan.content, console, failure) ||
      !delete_files(site, plan.temporaries, console, failure)) {
    return false;
  }
  for (const std::string& folder : plan.empty_folders) {
    discard_empty_folder(site / path_of(folder));
  }
  return true;
}

void report_files(const std::string& list, const std::vector<PrunableFile>& files, Report& report) {
  report.add_list(list, {});
  for (const PrunableFile& file : files) report.add_record(list, {{"path", file.name}, {"size", file.size}});
}

void report_plan(const PruneOptions& options, const PrunePlan& plan, Report& report) {
  report_files("history", plan.history, report);
  report_files("content", plan.content, report);
  report_files("temporary", plan.temporaries, report);
  report.add("kept_releases", plan.kept_releases);
  report.add("kept_content", plan.kept_content);
  report.add("history_files", plan.history.size());
  report.add("content_files", plan.content.size());
  report.add("temporary_files", plan.temporaries.size());
  report.add("bytes", total_bytes(plan.history) + total_bytes(plan.content) + total_bytes(plan.temporaries));
  report.add("deleted", options.yes);
  if (options.yes) return;
  report.note("nothing was deleted yet");
  report.next_step("kvxpublish prune \"" + options.site + "\" --keep " + std::to_string(options.keep) + " --yes");
}

bool run_prune(const PruneOptions& options, const CommandContext& context, Failure& failure) {
  const fs::path site = given_path(options.site);
  PrunePlan plan;
  SiteLock lock;
  if (options.yes && !lock.acquire(site, failure)) return false;
  if (!plan_prune(site, options.keep, file_time_now(), plan, failure)) return false;
  if (plan.history.empty() && plan.content.empty() && plan.temporaries.empty() && plan.empty_folders.empty()) {
    return fail(ExitCode::nothing_to_do, path_text(site) + ": there is nothing to delete", failure);
  }
  if (options.yes && !carry_out(site, plan, context.console, failure)) return false;
  report_plan(options, plan, context.report);
  return true;
}

}  // namespace

RunCommand define_prune(CommandOptions command) {
  const auto options = std::make_shared<PruneOptions>();
  add_site_folder(command, options->site);
  command
      .add_number("--keep", options->keep, 1, 1000000,
                  "How many releases of each channel's history to keep, the newest; the live one "
                  "is kept in any case")
      .required()
      .type_name("N");
  command.add_flag("--yes", options->yes, "Delete; without it, what would be deleted is only listed and counted");
  command.footer("Example:\n  kvxpublish prune /srv/www/patch --keep 5");
  return [options](const CommandContext& context, Failure& failure) { return run_prune(*options, context, failure); };
}

}  // namespace kvx::publish
