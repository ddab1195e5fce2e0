// Reading a release site, wherever it is: a folder on this machine, or a URL that launchers would fetch from. Reading
// changes nothing. The messages of failures name the file or URL.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "manifest/manifest.h"
#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

// What became of the search for one file of a site. `failure` is filled for `failed` only.
enum class Search : uint8_t { found, absent, failed };

// Takes a piece of content; false stops the reading. The bytes are valid during the call only.
using ContentSink = std::function<bool(const uint8_t* bytes, size_t count)>;

// One thread may use a folder's reader or a URL's at a time; several readers of one site may work side by side.
class SiteReader {
 public:
  SiteReader() = default;
  SiteReader(const SiteReader&) = delete;
  SiteReader& operator=(const SiteReader&) = delete;
  virtual ~SiteReader() = default;

  // The full path or URL of a file below the site, "manifest.json" or "files/<digest>" for example, for messages.
  [[nodiscard]] virtual std::string name_of(const std::string& relative) const = 0;

  // A small file whole. More than `limit` bytes is a failure.
  [[nodiscard]] virtual Search read_file(const std::string& relative, uint64_t limit, std::string& bytes,
                                         Failure& failure) = 0;

  // The size of a file in bytes, without its content.
  [[nodiscard]] virtual Search find_size(const std::string& relative, uint64_t& size, Failure& failure) = 0;

  // The content of a file of a known size, in order. Another size is a failure; so is a sink that stops.
  [[nodiscard]] virtual bool read_content(const std::string& relative, uint64_t size, const ContentSink& sink,
                                          Failure& failure) = 0;
};

// Whether a person means a URL, not a folder.
[[nodiscard]] bool is_url(const std::string& location);

// Where the files of a channel lie below a site, with "/".
[[nodiscard]] std::string manifest_name(const std::string& channel);
[[nodiscard]] std::string signature_name(const std::string& channel);
[[nodiscard]] std::string blob_name(const std::string& sha256);

// What a site publishes on a channel: the exact bytes, and what launchers read in them.
struct PublishedRelease {
  std::string manifest_bytes;
  std::string signature;  // the signature file, empty when there is none; nothing has checked it
  Manifest manifest;
};

// Reads the release and validates the manifest with the launcher's own rules. `absent` when the site has no manifest
// for the channel; a manifest that launchers would refuse is a failure with that code.
[[nodiscard]] Search read_release(SiteReader& site, const std::string& channel, PublishedRelease& release,
                                  Failure& failure);

}  // namespace kvx::publish
