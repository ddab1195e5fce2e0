#include "tools/kvxpublish/command.h"

#include <charconv>

#include "tools/kvxpublish/cli11.h"

namespace kvx::publish {

CLI::Option* add_path_option(CLI::App& command, const std::string& name, std::string& value,
                             const std::string& description) {
  CLI::Option* option = command.add_option(name, value, description);
  if (!name.starts_with('-')) option->type_name("");  // a positional argument's name says what it is
  return option->check([](const std::string& text) { return std::string(text.empty() ? "the path is empty" : ""); });
}

void add_site_folder(CLI::App& command, std::string& value) {
  add_path_option(command, "SITE", value, "The site's folder")->required();
}

void add_channel_option(CLI::App& command, std::string& value) {
  value = "live";
  command.add_option("--channel", value, "The release channel")->type_name("C")->capture_default_str();
}

bool read_decimal(std::string_view text, uint64_t least, uint64_t largest, uint64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number >= least && number <= largest;
}

CLI::Option* take_decimal(CLI::Option* option, uint64_t least, uint64_t largest) {
  const auto normalise = [least, largest](std::string& text) {
    uint64_t number = 0;
    if (!read_decimal(text, least, largest, number)) {
      return '"' + text + "\" is no number from " + std::to_string(least) + " to " + std::to_string(largest);
    }
    text = std::to_string(number);  // the library takes a 0 at the beginning for an octal number's
    return std::string();
  };
  return option->transform(CLI::Validator(normalise, ""));
}

}  // namespace kvx::publish
