#include "tools/kvxpublish/commands/rollback.h"

#include <algorithm>
#include <memory>

#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/release/republish.h"
#include "tools/kvxpublish/site/folder_site.h"
#include "tools/kvxpublish/site/release_history.h"

namespace kvx::publish {
namespace {

constexpr std::string_view serial_prefix = "serial:";
constexpr std::string_view version_prefix = "version:";

struct RollbackOptions {
  std::string site;
  std::string to;
  std::string channel;
  RepublishOptions signing;
};

std::string serial_text(const PublishedRelease& release) { return std::to_string(release.manifest.serial); }

std::string list_of(const std::vector<PublishedRelease>& shipped) {
  std::string list;
  for (const PublishedRelease& release : shipped) {
    list += (list.empty() ? "" : ", ") + release.manifest.version + " (serial " + serial_text(release) + ')';
  }
  return list;
}

// What a person may mean by a number or a version.
struct Candidates {
  const PublishedRelease* by_serial = nullptr;
  std::vector<const PublishedRelease*> of_version;  // ascending by serial

  [[nodiscard]] const PublishedRelease* by_version() const { return of_version.empty() ? nullptr : of_version.back(); }
};

std::string serials_of(const std::vector<const PublishedRelease*>& releases) {
  std::string serials;
  for (const PublishedRelease* release : releases) serials += (serials.empty() ? "" : ", ") + serial_text(*release);
  return serials;
}

// One without a signature was never published as a whole, and counts only when the version has no other.
void prefer_signed(std::vector<const PublishedRelease*>& releases) {
  const auto is_unsigned = [](const PublishedRelease* release) { return release->signature.empty(); };
  if (!std::ranges::all_of(releases, is_unsigned)) std::erase_if(releases, is_unsigned);
}

Candidates find_candidates(const std::vector<PublishedRelease>& shipped, const std::string& wanted) {
  const bool serial_only = wanted.starts_with(serial_prefix);
  const bool version_only = wanted.starts_with(version_prefix);
  std::string_view name = wanted;
  if (serial_only) name.remove_prefix(serial_prefix.size());
  if (version_only) name.remove_prefix(version_prefix.size());
  Candidates found;
  for (const PublishedRelease& release : shipped) {
    if (!version_only && serial_text(release) == name) found.by_serial = &release;
    if (!serial_only && release.manifest.version == name) found.of_version.push_back(&release);
  }
  prefer_signed(found.of_version);
  return found;
}

bool find_base(const RollbackOptions& options, const std::vector<PublishedRelease>& shipped,
               const PublishedRelease*& base, Report& report, Failure& failure) {
  const Candidates found = find_candidates(shipped, options.to);
  const PublishedRelease* const by_version = found.by_version();
  if (found.by_serial != nullptr && by_version != nullptr && found.by_serial != by_version) {
    return fail(ExitCode::usage,
                "--to " + options.to + " is a serial, and the version of serial " + serial_text(*by_version) +
                    "; write --to serial:" + options.to + " or --to version:" + options.to,
                failure);
  }
  base = found.by_serial != nullptr ? found.by_serial : by_version;
  if (base == nullptr) {
    const std::string list = shipped.empty() ? "it has none" : "it has " + list_of(shipped);
    return fail(
        ExitCode::failed,
        options.site + ": there is no release " + options.to + " of channel \"" + options.channel + "\"; " + list,
        failure);
  }
  if (found.by_serial == nullptr && found.of_version.size() > 1) {
    report.note("version " + base->manifest.version + " was published as serials " + serials_of(found.of_version) +
                "; the newest of them was taken");
  }
  return true;
}

bool run_rollback(const RollbackOptions& options, const CommandContext& context, Failure& failure) {
  Republishing republishing(options.site, options.channel, options.signing, context);
  const PublishedRelease* base = nullptr;
  if (!republishing.prepare(failure) || !republishing.load_shipped(failure) ||
      !find_base(options, republishing.shipped(), base, context.report, failure)) {
    return false;
  }
  // A release that nobody trusted has signed gets no signature here either.
  const auto site = open_folder_site(options.site);
  const auto serial = static_cast<uint64_t>(base->manifest.serial);
  NamedKey signer{};
  return find_signer(base->manifest_bytes, base->signature,
                     site->name_of(history_signature_name(options.channel, serial)), republishing.keys(), signer,
                     failure) &&
         republishing.publish(*base, failure);
}

}  // namespace

RunCommand define_rollback(CommandOptions command) {
  const auto options = std::make_shared<RollbackOptions>();
  add_site_folder(command, options->site);
  command.add_text("--to", options->to, "The release to go back to; serial:N or version:V where it could be either")
      .required()
      .type_name("VERSION|SERIAL");
  add_channel_option(command, options->channel);
  add_republish_options(command, options->signing);
  command.footer("Example:\n  kvxpublish rollback site --to 1.2 --channel live --key primary.pem");
  return
      [options](const CommandContext& context, Failure& failure) { return run_rollback(*options, context, failure); };
}

}  // namespace kvx::publish
