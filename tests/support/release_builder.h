// A release for tests: a manifest that names its files by the digests of their contents, and its place on a server.
//
//   const ReleaseBuilder release = ReleaseBuilder().version("1.1").serial(7).file("bin/game.exe", "content");
//   release.publish(server);
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "manifest/manifest.h"
#include "tests/support/scripted_server.h"

namespace kvx::test {

class ReleaseBuilder {
 public:
  struct File {
    std::string path;  // with "/"
    std::string content;
  };

  // Channel "live", version "1.0", serial 1, nothing else. The first file is the start program until exe names one.
  ReleaseBuilder& channel(std::string name);
  ReleaseBuilder& version(std::string version);
  ReleaseBuilder& serial(int64_t serial);
  ReleaseBuilder& exe(std::string path);
  ReleaseBuilder& file(std::string path, std::string content);
  ReleaseBuilder& remove(std::string path);
  ReleaseBuilder& arg(std::string argument);
  ReleaseBuilder& launcher(std::string version, std::string content);
  ReleaseBuilder& min_free_disk(uint64_t bytes);
  // A further member, or one in place of the builder's own: its name and its value as JSON text.
  ReleaseBuilder& member(std::string name, std::string json);

  [[nodiscard]] const std::string& channel() const { return channel_; }
  [[nodiscard]] const std::vector<File>& files() const { return files_; }

  // The document.
  [[nodiscard]] std::string json() const;
  // What the program reads from it; fails the test when it refuses it.
  [[nodiscard]] Manifest manifest() const;

  // Serves every content as a blob, then the manifest and its signature.
  void publish(ScriptedServer& server) const;
  void publish_blobs(ScriptedServer& server) const;

 private:
  std::string channel_ = "live";
  std::string version_ = "1.0";
  int64_t serial_ = 1;
  std::optional<std::string> exe_;
  std::vector<File> files_;
  std::vector<std::string> removals_;
  std::vector<std::string> args_;
  std::optional<std::pair<std::string, std::string>> launcher_;  // version, content
  std::optional<uint64_t> min_free_disk_;
  std::vector<std::pair<std::string, std::string>> members_;
};

// Where a blob is on a ScriptedServer: "files/" and the digest of the content.
[[nodiscard]] std::string blob_url_path(const std::string& content);

}  // namespace kvx::test
