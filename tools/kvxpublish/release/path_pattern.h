// Patterns that choose files below a folder, as in "--exclude". Upper and lower case are the same. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace kvx::publish {

// "?" stands for one character and "*" for any number of them, both within one name; "**" also goes across folders. A
// pattern without "/" is compared with the name alone, in whatever folder; one with "/" with the whole path.
class PathPattern {
 public:
  // Backslashes count as "/"; a "/" at the end is dropped, one at the beginning ties the pattern to the top folder.
  explicit PathPattern(std::string_view text);

  // `path` is relative, with "/".
  [[nodiscard]] bool matches(std::string_view path) const;

 private:
  std::wstring pattern_;  // upper case
  bool name_alone_ = false;
};

}  // namespace kvx::publish
