// The facts that the launcher remembers between runs: the file state.txt. A missing, unreadable or oversized file
// counts as empty. For the worker thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engine/state_lines.h"
#include "foundations/stop_signal.h"

namespace kvx {

namespace state_key {
constexpr char channel[] = "channel";                      // the channel chosen last on the command line
constexpr char installed_version[] = "installed.version";  // of the installed release
constexpr char installed_serial[] = "installed.serial";
constexpr char installed_channel[] = "installed.channel";
constexpr char complete[] = "complete";                // "0" during an install, "1" after it
constexpr char updating_serial[] = "updating.serial";  // of the release being installed

// The highest serial accepted on a channel, which guards against being moved back to an older release.
[[nodiscard]] std::string accepted_serial(const std::string& channel_name);
}  // namespace state_key

class StateFile {
 public:
  // Remembers the path for save.
  void load(const std::wstring& path);

  [[nodiscard]] std::optional<std::string> get(const std::string& key) const;
  // Empty when the key is absent.
  [[nodiscard]] std::string get_or_empty(const std::string& key) const;
  // Neither may hold a line break.
  void set(const std::string& key, const std::string& value);

  // On failure the file on disk stays as it was. A program that holds it is waited for, until `stop`, which may be
  // null, is requested.
  [[nodiscard]] bool save(uint32_t& error, const StopSignal* stop = nullptr) const;
  [[nodiscard]] bool save() const;

  [[nodiscard]] const std::wstring& path() const { return path_; }

 private:
  std::wstring path_;
  StateValues values_;
};

}  // namespace kvx
