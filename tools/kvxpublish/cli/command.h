// What a command of the publisher's tool is made of, and the options that several commands share.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "tools/kvxpublish/cli/command_options.h"
#include "tools/kvxpublish/cli/console.h"
#include "tools/kvxpublish/cli/failure.h"
#include "tools/kvxpublish/cli/report.h"

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
using DefineCommand = RunCommand (*)(CommandOptions command);

// The required first argument SITE of commands that change a site: a folder.
void add_site_folder(CommandOptions command, std::string& value);

// --channel, "live" unless given.
void add_channel_option(CommandOptions command, std::string& value);

// --public-keys, for commands that check signatures.
void add_public_keys_option(CommandOptions command, std::string& value);

// The same option for the next step, with a blank before it; nothing when it was not given.
[[nodiscard]] std::string public_keys_argument(const std::string& option);

// The largest number that launchers can hold.
constexpr uint64_t largest_launcher_number = std::numeric_limits<int64_t>::max();

}  // namespace kvx::publish
