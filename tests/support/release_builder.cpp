#include "tests/support/release_builder.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "manifest/json.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"

namespace kvx::test {
namespace {

std::string quoted(const std::string& text) {
  std::string json = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') json += '\\';
    json += c;
  }
  return json + '"';
}

std::string array_of(const std::vector<std::string>& values) {
  std::string json;
  for (const std::string& value : values) json += (json.empty() ? "" : ",") + value;
  return "[" + json + "]";
}

std::string array_of_strings(std::vector<std::string> texts) {
  std::transform(texts.begin(), texts.end(), texts.begin(), quoted);
  return array_of(texts);
}

std::string content_members(const std::string& content) {
  return "\"size\":" + std::to_string(content.size()) + ",\"sha256\":\"" + sha256_hex(content) + "\"}";
}

}  // namespace

ReleaseBuilder& ReleaseBuilder::channel(std::string name) {
  channel_ = std::move(name);
  return *this;
}

ReleaseBuilder& ReleaseBuilder::version(std::string version) {
  version_ = std::move(version);
  return *this;
}

ReleaseBuilder& ReleaseBuilder::serial(int64_t serial) {
  serial_ = serial;
  return *this;
}

ReleaseBuilder& ReleaseBuilder::exe(std::string path) {
  exe_ = std::move(path);
  return *this;
}

ReleaseBuilder& ReleaseBuilder::file(std::string path, std::string content) {
  files_.push_back({std::move(path), std::move(content)});
  return *this;
}

ReleaseBuilder& ReleaseBuilder::remove(std::string path) {
  removals_.push_back(std::move(path));
  return *this;
}

ReleaseBuilder& ReleaseBuilder::arg(std::string argument) {
  args_.push_back(std::move(argument));
  return *this;
}

ReleaseBuilder& ReleaseBuilder::launcher(std::string version, std::string content) {
  launcher_.emplace(std::move(version), std::move(content));
  return *this;
}

ReleaseBuilder& ReleaseBuilder::min_free_disk(uint64_t bytes) {
  min_free_disk_ = bytes;
  return *this;
}

ReleaseBuilder& ReleaseBuilder::member(std::string name, std::string json) {
  members_.emplace_back(std::move(name), std::move(json));
  return *this;
}

std::string ReleaseBuilder::json() const {
  std::vector<std::pair<std::string, std::string>> members = {{"format", "1"},
                                                              {"product", quoted("KVX")},
                                                              {"channel", quoted(channel_)},
                                                              {"version", quoted(version_)},
                                                              {"serial", std::to_string(serial_)}};
  if (exe_ || !files_.empty()) members.emplace_back("exe", quoted(exe_ ? *exe_ : files_.front().path));
  std::vector<std::string> files;
  for (const File& file : files_)
    files.push_back("{\"path\":" + quoted(file.path) + "," + content_members(file.content));
  members.emplace_back("files", array_of(files));
  if (!removals_.empty()) members.emplace_back("remove", array_of_strings(removals_));
  if (!args_.empty()) members.emplace_back("args", array_of_strings(args_));
  if (launcher_) {
    members.emplace_back("launcher",
                         "{\"version\":" + quoted(launcher_->first) + "," + content_members(launcher_->second));
  }
  if (min_free_disk_) members.emplace_back("min_free_disk", std::to_string(*min_free_disk_));
  for (const auto& given : members_) {
    std::erase_if(members, [&given](const auto& member) { return member.first == given.first; });
    members.push_back(given);
  }
  std::string json;
  for (const auto& [name, value] : members) json += (json.empty() ? "" : ",") + quoted(name) + ":" + value;
  return "{" + json + "}";
}

Manifest ReleaseBuilder::manifest() const {
  const std::string text = json();
  JsonDocument document;
  Manifest manifest;
  std::string error;
  EXPECT_TRUE(parse_json(text, document, error) && read_manifest(document.root(), L"KVXLauncher.exe", manifest, error))
      << error;
  return manifest;
}

void ReleaseBuilder::publish(ScriptedServer& server) const {
  publish_blobs(server);
  const std::string document = json();
  const std::string folder = channel_ == "live" ? "" : channel_ + "/";
  server.serve(folder + "manifest.sig", sign_manifest(document));
  server.serve(folder + "manifest.json", document);
}

void ReleaseBuilder::publish_blobs(ScriptedServer& server) const {
  for (const File& file : files_) server.serve(blob_url_path(file.content), file.content);
  if (launcher_) server.serve(blob_url_path(launcher_->second), launcher_->second);
}

std::string blob_url_path(const std::string& content) { return "files/" + sha256_hex(content); }

}  // namespace kvx::test
