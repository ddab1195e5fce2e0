// How a command declares its options. The command-line library behind it is included by two sources alone, because it
// takes a compiler longer than all of a command.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kvx::publish {

// An option or argument that was declared. The command line may give it once, unless it is a list.
class DeclaredOption {
 public:
  explicit DeclaredOption(CLI::Option& option) : option_(&option) {}

  DeclaredOption required() const;
  DeclaredOption type_name(const std::string& name) const;  // what the help calls its value
  DeclaredOption show_default() const;                      // the value that its variable has now
  DeclaredOption one_of(const std::vector<std::string>& values) const;
  DeclaredOption excludes(const DeclaredOption& other) const;

 private:
  CLI::Option* option_;
};

// The options of one command. A name is "--name" or, for an argument, "NAME". The variables must live until the command
// line has been parsed, and keep their values where an option is not given.
class CommandOptions {
 public:
  explicit CommandOptions(CLI::App& command) : command_(&command) {}

  DeclaredOption add_text(const std::string& name, std::string& value, const std::string& description) const;

  // Names a file or folder of this machine. Refused are an empty text, which would quietly mean the current folder, and
  // what names a place on another machine, which would quietly become a folder of that name.
  DeclaredOption add_path(const std::string& name, std::string& value, const std::string& description) const;

  // The same, or a URL.
  DeclaredOption add_location(const std::string& name, std::string& value, const std::string& description) const;

  // Takes one value each time it is given.
  DeclaredOption add_list(const std::string& name, std::vector<std::string>& values,
                          const std::string& description) const;

  // Decimal digits and nothing else, of a number from `least` to `largest`.
  DeclaredOption add_number(const std::string& name, uint64_t& value, uint64_t least, uint64_t largest,
                            const std::string& description) const;
  DeclaredOption add_number(const std::string& name, uint16_t& value, uint16_t least, uint16_t largest,
                            const std::string& description) const;
  DeclaredOption add_number(const std::string& name, std::optional<uint64_t>& value, uint64_t least, uint64_t largest,
                            const std::string& description) const;

  DeclaredOption add_flag(const std::string& name, bool& value, const std::string& description) const;

  // Shown at the end of the command's help.
  void footer(const std::string& text) const;

  // Whether the option was given. For use while the command runs.
  [[nodiscard]] bool given(const std::string& name) const;

 private:
  CLI::App* command_;
};

// Decimal digits and nothing else, of a number from `least` to `largest`.
[[nodiscard]] bool read_decimal(std::string_view text, uint64_t least, uint64_t largest, uint64_t& number);

}  // namespace kvx::publish
