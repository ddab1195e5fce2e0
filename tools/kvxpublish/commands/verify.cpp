#include "tools/kvxpublish/commands/verify.h"

#include <memory>

#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/remote/content_check.h"
#include "tools/kvxpublish/remote/http_check.h"
#include "tools/kvxpublish/remote/site_opener.h"
#include "tools/kvxpublish/site/release_content.h"
#include "tools/kvxpublish/site/trusted_release.h"

namespace kvx::publish {
namespace {

struct VerifyOptions {
  std::string site;
  std::string channel;
  std::string public_keys;
  bool full = false;
};

// What stands in the headers may explain what is wrong with the signature, so it is looked at first.
bool check_documents(const SiteReader& site, const std::string& channel, Problems& problems,
                     std::vector<std::string>& notes, Failure& failure) {
  HttpCheck http(problems);
  if (!http.open(failure)) return false;
  http.check_document(site.name_of(manifest_name(channel)), notes);
  http.check_document(site.name_of(signature_name(channel)), notes);
  return true;
}

bool check_site(const VerifyOptions& options, const CommandContext& context, PublishedRelease& release,
                NamedKey& signer, Failure& failure) {
  std::vector<NamedKey> keys;
  std::unique_ptr<SiteReader> site;
  Problems problems;
  std::vector<std::string> notes;
  if (!load_trusted_keys(options.public_keys, keys, failure) || !open_site(options.site, site, failure)) return false;
  if (!read_trusted_release(*site, options.channel, keys, release, signer, failure)) {
    problems.add(failure);
    if (is_url(options.site) && failure.code != ExitCode::failed &&
        !check_documents(*site, options.channel, problems, notes, failure)) {
      return false;
    }
    return problems.settle(options.site, failure);
  }
  if (is_url(options.site) && !check_documents(*site, options.channel, problems, notes, failure)) return false;
  for (const std::string& note : notes) context.report.note(note);
  const ContentDepth depth = options.full ? ContentDepth::digests : ContentDepth::sizes;
  return check_content(options.site, content_of(release.manifest), depth, context.console, problems, failure) &&
         problems.settle(options.site, failure);
}

void report_release(const VerifyOptions& options, const PublishedRelease& release, const NamedKey& signer,
                    Report& report) {
  const Manifest& manifest = release.manifest;
  const std::vector<Content> content = content_of(manifest);
  report.add("channel", manifest.channel);
  report.add("version", manifest.version);
  report.add("serial", static_cast<uint64_t>(manifest.serial));
  report.add("key", identifier_text(signer.key));
  report.add("key_name", signer.name);
  report.add("files", manifest.files.size());
  report.add("bytes", manifest.total_size);
  report.add("removals", manifest.remove.size());
  report.add("content_files", content.size());
  report.add("content_bytes", total_bytes(content));
  if (manifest.launcher.present) report.add("launcher", manifest.launcher.version);
  report.add("checked", std::string(options.full ? "digests" : "sizes"));
  if (is_url(options.site)) return;
  report.next_step("kvxpublish publish \"" + options.site + "\" --channel " + options.channel + " --to WEB_ROOT" +
                   public_keys_argument(options.public_keys));
}

bool run_verify(const VerifyOptions& options, const CommandContext& context, Failure& failure) {
  PublishedRelease release;
  NamedKey signer{};
  if (!check_site(options, context, release, signer, failure)) return false;
  report_release(options, release, signer, context.report);
  return true;
}

}  // namespace

RunCommand define_verify(CommandOptions command) {
  const auto options = std::make_shared<VerifyOptions>();
  command.add_location("SITE", options->site, "The site, a folder or a URL").required();
  add_channel_option(command, options->channel);
  command.add_flag("--full", options->full, "Read all content and check its digests, not only its sizes");
  add_public_keys_option(command, options->public_keys);
  command.footer("Example:\n  kvxpublish verify https://updates.example.org/patch/ --full");
  return [options](const CommandContext& context, Failure& failure) { return run_verify(*options, context, failure); };
}

}  // namespace kvx::publish
