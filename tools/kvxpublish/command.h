// What a command of the publisher's tool is made of, and the options that several commands share.
#pragma once

#include <functional>
#include <string>

#include "tools/kvxpublish/console.h"
#include "tools/kvxpublish/failure.h"
#include "tools/kvxpublish/report.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kvx::publish {

// What a running command works with. Progress and questions go to the console at once, everything else to the report.
struct CommandContext {
  Console& console;
  Report& report;
};

// Does the work with the options that were parsed. False with `failure` filled when it did not come to its end.
using RunCommand = std::function<bool(const CommandContext&, Failure&)>;

// Gives a command its options and its footer with an example, and returns what runs it. The options' values live in
// what is returned.
using DefineCommand = RunCommand (*)(CLI::App& command);

// Names a file or folder; an empty text would quietly mean the current folder.
CLI::Option* add_path_option(CLI::App& command, const std::string& name, std::string& value,
                             const std::string& description);

// The required first argument SITE of commands that change a site: a folder.
void add_site_folder(CLI::App& command, std::string& value);

// --channel, "live" unless given.
void add_channel_option(CLI::App& command, std::string& value);

// --yes, for commands that ask before they act.
void add_yes_option(CLI::App& command, bool& value);

// Asks a yes-or-no question unless `yes` already answers it. False when the answer is no, or when there is nobody to
// ask, which is an error of usage.
[[nodiscard]] bool confirm(Console& console, const std::string& question, bool yes, Failure& failure);

}  // namespace kvx::publish
