// Publishing content once more that a site has already: under a new serial, with a removal list that gives players
// exactly that content, whatever they have of the channel.
#pragma once

#include <string>
#include <vector>

#include "tools/kvxpublish/cli/command.h"
#include "tools/kvxpublish/keys/public_keys.h"
#include "tools/kvxpublish/site/site_lock.h"
#include "tools/kvxpublish/site/site_reader.h"

namespace kvx::publish {

// Options of commands that sign a manifest of their own making.
struct RepublishOptions {
  std::string key;
  std::string public_keys;
  bool is_unsigned = false;
  bool takes_signature_away = false;  // an unsigned release may replace a signed one
};

// --key, --unsigned, --yes and --public-keys.
void add_republish_options(CommandOptions command, RepublishOptions& options);

class Republishing {
 public:
  // `site` is the folder as on the command line, `channel` the one that gets the release.
  Republishing(std::string site, std::string channel, const RepublishOptions& options, const CommandContext& context)
      : site_(std::move(site)), channel_(std::move(channel)), options_(options), context_(context) {}

  // Checks the options, loads the keys and locks the site until the end. Goes before everything else.
  [[nodiscard]] bool prepare(Failure& failure);

  // Whose signatures count: the trusted keys, and the one that signs.
  [[nodiscard]] const std::vector<NamedKey>& keys() const { return keys_; }

  // What was ever published on the channel, ascending by serial; the live release is among them even if the history
  // has lost it.
  [[nodiscard]] bool load_shipped(Failure& failure);
  [[nodiscard]] const std::vector<PublishedRelease>& shipped() const { return shipped_; }

  // Publishes the content of `base`, a release of any channel of the site, and reports it. When that is what the
  // channel offers already and launchers take it, the failure is `nothing_to_do`. On failure the site is as it was.
  [[nodiscard]] bool publish(const PublishedRelease& base, Failure& failure);

 private:
  [[nodiscard]] bool load_keys(Failure& failure);
  [[nodiscard]] bool read_live(SiteReader& site, Failure& failure);
  [[nodiscard]] bool goes_on_without_live(Failure& failure);
  [[nodiscard]] bool offers_already(const std::string& manifest) const;
  [[nodiscard]] bool check_signature_stays(Failure& failure) const;
  [[nodiscard]] bool settle_identity(const Manifest& base, struct ReleaseIdentity& identity, Failure& failure) const;
  [[nodiscard]] bool check_content_of(const Manifest& base, Failure& failure) const;
  void note_launcher(const LauncherEntry& launcher) const;
  [[nodiscard]] bool write(const std::string& manifest, const Manifest& read, Failure& failure);

  const std::string site_;
  const std::string channel_;
  const RepublishOptions& options_;
  const CommandContext& context_;
  SiteLock lock_;
  PrivateKey key_;
  std::vector<NamedKey> keys_;
  std::vector<PublishedRelease> shipped_;
  std::string live_bytes_;  // empty when the channel has no release
  bool live_is_signed_ = false;
  bool live_is_trusted_ = false;  // launchers take its signature
  LauncherEntry live_launcher_;
};

}  // namespace kvx::publish
