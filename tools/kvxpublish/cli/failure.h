// How a command of the publisher's tool ends. The number is the program's exit code.
#pragma once

#include <string>
#include <utility>

namespace kvx::publish {

enum class ExitCode : int {
  done = 0,
  failed = 1,           // a file, folder or server could not be read or written
  usage = 2,            // the command line
  refused = 3,          // launchers would refuse what was to be published, or it could not be installed on Windows
  nothing_to_do = 4,    // everything is already as the command would make it
  serial_conflict = 5,  // the serial is taken, or launchers have seen a larger one
  key = 6,              // a key file, or a signature that does not verify
};

// Why a command did not succeed: one line for a person, naming the path and the way out.
struct Failure {
  ExitCode code = ExitCode::failed;
  std::string text;
};

// Fills `failure` and returns false, so that a rule is one line.
inline bool fail(ExitCode code, std::string text, Failure& failure) {
  failure = {code, std::move(text)};
  return false;
}

}  // namespace kvx::publish
