#include "tools/kvxpublish/cli/command_options.h"

#include <charconv>
#include <functional>

#include "tools/kvxpublish/cli/cli11.h"

namespace kvx::publish {
namespace {

// Lets an option take such a number alone.
DeclaredOption take_decimal(CLI::Option& option, uint64_t least, uint64_t largest) {
  const auto normalise = [least, largest](std::string& text) {
    uint64_t number = 0;
    if (!read_decimal(text, least, largest, number)) {
      return '"' + text + "\" is no number from " + std::to_string(least) + " to " + std::to_string(largest);
    }
    text = std::to_string(number);  // the library takes a 0 at the beginning for an octal number's
    return std::string();
  };
  option.transform(CLI::Validator(normalise, ""));
  return DeclaredOption(option);
}

bool is_url(const std::string& text) { return text.find("://") != std::string::npos; }

// "host:path" or "user@host:path", as scp and rsync take it; not a drive of Windows, nor a URL.
bool is_remote_shell_path(const std::string& text) {
  constexpr size_t drive_letter = 1;
  const size_t colon = text.find(':');
  return colon != std::string::npos && colon > drive_letter && text.find_first_of("/\\") > colon && !is_url(text);
}

std::string elsewhere(const std::string& text) {
  return '"' + text +
         "\" is on another machine, and this takes a path on this one; make the site in a folder here and copy that "
         "there, for example with rclone or rsync";
}

// What is wrong with it, empty when nothing is.
std::string path_problem(const std::string& text) {
  if (text.empty()) return "the path is empty";
  return is_remote_shell_path(text) ? elsewhere(text) : std::string();
}

DeclaredOption add_checked(CLI::App& command, const std::string& name, std::string& value,
                           const std::string& description,
                           const std::function<std::string(const std::string&)>& problem) {
  CLI::Option* option = command.add_option(name, value, description);
  if (!name.starts_with('-')) option->type_name("");  // a positional argument's name says what it is
  option->check(problem);
  return DeclaredOption(*option);
}

}  // namespace

DeclaredOption DeclaredOption::required() const {
  option_->required();
  return *this;
}

DeclaredOption DeclaredOption::type_name(const std::string& name) const {
  option_->type_name(name);
  return *this;
}

DeclaredOption DeclaredOption::show_default() const {
  option_->capture_default_str();
  return *this;
}

DeclaredOption DeclaredOption::one_of(const std::vector<std::string>& values) const {
  option_->check(CLI::IsMember(values));
  return *this;
}

DeclaredOption DeclaredOption::excludes(const DeclaredOption& other) const {
  option_->excludes(other.option_);
  return *this;
}

DeclaredOption CommandOptions::add_text(const std::string& name, std::string& value,
                                        const std::string& description) const {
  return DeclaredOption(*command_->add_option(name, value, description));
}

DeclaredOption CommandOptions::add_path(const std::string& name, std::string& value,
                                        const std::string& description) const {
  return add_checked(*command_, name, value, description,
                     [](const std::string& text) { return is_url(text) ? elsewhere(text) : path_problem(text); });
}

DeclaredOption CommandOptions::add_location(const std::string& name, std::string& value,
                                            const std::string& description) const {
  return add_checked(*command_, name, value, description, path_problem);
}

DeclaredOption CommandOptions::add_list(const std::string& name, std::vector<std::string>& values,
                                        const std::string& description) const {
  return DeclaredOption(
      *command_->add_option(name, values, description + "; may be repeated")->expected(1)->take_all());
}

DeclaredOption CommandOptions::add_number(const std::string& name, uint64_t& value, uint64_t least, uint64_t largest,
                                          const std::string& description) const {
  return take_decimal(*command_->add_option(name, value, description), least, largest);
}

DeclaredOption CommandOptions::add_number(const std::string& name, uint16_t& value, uint16_t least, uint16_t largest,
                                          const std::string& description) const {
  return take_decimal(*command_->add_option(name, value, description), least, largest);
}

DeclaredOption CommandOptions::add_number(const std::string& name, std::optional<uint64_t>& value, uint64_t least,
                                          uint64_t largest, const std::string& description) const {
  return take_decimal(*command_->add_option(name, value, description), least, largest);
}

DeclaredOption CommandOptions::add_flag(const std::string& name, bool& value, const std::string& description) const {
  return DeclaredOption(*command_->add_flag(name, value, description));
}

void CommandOptions::footer(const std::string& text) const { command_->footer(text); }

bool CommandOptions::given(const std::string& name) const { return command_->count(name) > 0; }

bool read_decimal(std::string_view text, uint64_t least, uint64_t largest, uint64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number >= least && number <= largest;
}

}  // namespace kvx::publish
