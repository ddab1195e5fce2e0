// What a look at a site finds wrong, one line each, so that all of it can be put right in one go.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "tools/kvxpublish/cli/failure.h"

namespace kvx::publish {

class Problems {
 public:
  // A line names the file or URL, what is wrong with it and the way out. Any thread.
  void add(ExitCode code, std::string line);
  void add(const Failure& failure) { add(failure.code, failure.text); }

  // The rest is for when no thread adds any more.
  [[nodiscard]] bool empty() const { return lines_.empty(); }

  // True when there are none. Otherwise `failure` is all of them, in the order of their text, under the gravest code: a
  // signature before what launchers refuse, and that before what could not be read. `where` heads the list when there
  // is more than one.
  [[nodiscard]] bool settle(const std::string& where, Failure& failure) const;

 private:
  std::mutex mutex_;
  std::vector<Failure> lines_;
};

}  // namespace kvx::publish
