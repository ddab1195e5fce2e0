// The release manifest: which files make up one release of the game on one channel, which old files go, the program to
// start, and the newest launcher. docs/formats.md describes the document.
//
// Validation is strict and total: the first violation ends it with one English message, and no partly valid manifest is
// ever used. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "manifest/json_value.h"
#include "manifest/managed_path.h"
#include "manifest/sha256_text.h"

namespace kvx {

struct ManifestFile {
  std::string path;   // as written, with "/"
  uint64_t size = 0;  // bytes
  Sha256Text sha256;

  // With backslashes, relative to the install folder. Made at each call: there may be half a million files.
  [[nodiscard]] std::wstring native_path() const { return kvx::native_path(path); }
};

struct ManifestRemoval {
  std::string path;

  [[nodiscard]] std::wstring native_path() const { return kvx::native_path(path); }
};

struct LauncherEntry {
  bool present = false;
  std::string version;
  std::string sha256;
  uint64_t size = 0;  // bytes
};

struct Manifest {
  int64_t format = 0;
  std::string product;
  std::string channel;
  std::string version;
  std::string published;
  std::vector<std::string> args;
  LauncherEntry launcher;
  std::vector<ManifestRemoval> remove;
  std::vector<ManifestFile> files;
  std::string exe;  // as written, with "/"
  std::string notes;
  uint64_t min_free_disk = 0;  // bytes
  uint64_t total_size = 0;     // bytes
  int64_t serial = 0;          // never negative in a valid manifest
};

// 1 to 32 characters, each a-z, 0-9, "-" or "_".
[[nodiscard]] bool is_channel_name(std::string_view name);

// `own_name` is the launcher's own file name, which a manifest must not manage. On failure returns false, `error` is
// the message, and `out` must not be used.
[[nodiscard]] bool read_manifest(const JsonValue& root, std::wstring_view own_name, Manifest& out, std::string& error);

// The "launcher" member of a document alone; absent or null leaves it not present and succeeds.
[[nodiscard]] bool read_launcher_entry(const JsonValue& root, LauncherEntry& out, std::string& error);

}  // namespace kvx
