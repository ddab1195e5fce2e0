// What a command of the publisher's tool is made of, and the options that several commands share.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

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

// The largest number that launchers can hold.
constexpr uint64_t largest_launcher_number = std::numeric_limits<int64_t>::max();

// Decimal digits and nothing else, of a number from `least` to `largest`.
[[nodiscard]] bool read_decimal(std::string_view text, uint64_t least, uint64_t largest, uint64_t& number);

// Lets an option take such a number alone.
CLI::Option* take_decimal(CLI::Option* option, uint64_t least, uint64_t largest);

}  // namespace kvx::publish
