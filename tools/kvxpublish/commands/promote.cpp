#include "tools/kvxpublish/commands/promote.h"

#include <memory>

#include "tools/kvxpublish/keys/trust.h"
#include "tools/kvxpublish/release/republish.h"
#include "tools/kvxpublish/site/folder_site.h"
#include "tools/kvxpublish/site/trusted_release.h"

namespace kvx::publish {
namespace {

struct PromoteOptions {
  std::string site;
  std::string from;
  std::string to;
  RepublishOptions signing;
};

// A release that nobody trusted has signed gets no signature here either.
bool load_base(const PromoteOptions& options, const std::vector<NamedKey>& keys, PublishedRelease& base,
               Failure& failure) {
  const auto site = open_folder_site(options.site);
  NamedKey signer{};
  return read_trusted_release(*site, options.from, keys, base, signer, failure);
}

bool run_promote(const PromoteOptions& options, const CommandContext& context, Failure& failure) {
  if (options.from == options.to) {
    return fail(ExitCode::usage, "--from and --to name the same channel; name two", failure);
  }
  Republishing republishing(options.site, options.to, options.signing, context);
  PublishedRelease base;
  return republishing.prepare(failure) && load_base(options, republishing.keys(), base, failure) &&
         republishing.load_shipped(failure) && republishing.publish(base, failure);
}

}  // namespace

RunCommand define_promote(CommandOptions command) {
  const auto options = std::make_shared<PromoteOptions>();
  command.add_text("--from", options->from, "The channel that has the release").required().type_name("C");
  command.add_text("--to", options->to, "The channel that gets it").required().type_name("C");
  command.add_path("--to-dir", options->site, "The site's folder, with both channels").required().type_name("DIR");
  add_republish_options(command, options->signing);
  command.footer("Example:\n  kvxpublish promote --from test --to live --to-dir site --key primary.pem");
  return [options](const CommandContext& context, Failure& failure) { return run_promote(*options, context, failure); };
}

}  // namespace kvx::publish
