// A manifest's content under another identity. Everything that is not said here stays as it was written, members that
// this tool does not know included. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::publish {

struct ReleaseIdentity {
  std::string channel;
  uint64_t serial = 0;
  std::vector<std::string> remove;
};

// The document with another channel, serial and removal list. `manifest` is one that launchers take.
[[nodiscard]] std::string with_identity(std::string_view manifest, const ReleaseIdentity& identity);

// Whether two such documents differ in their serial at most, or in the way they are written.
[[nodiscard]] bool same_but_for_serial(std::string_view a, std::string_view b);

}  // namespace kvx::publish
