// Where a command speaks: data goes to standard output, everything else to standard error.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kvx::publish {

class Console {
 public:
  Console() = default;
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  virtual ~Console() = default;

  // Both write at once and whole; any thread, but not two at a time.
  virtual void write_data(std::string_view text) = 0;
  virtual void write_message(std::string_view text) = 0;

  // Whether messages appear on a terminal, where a line can be drawn again.
  [[nodiscard]] virtual bool is_terminal() const = 0;
  // Whether messages may have colours; never when they do not appear on a terminal.
  [[nodiscard]] virtual bool has_colours() const = 0;
  // Characters in a line of the terminal.
  [[nodiscard]] virtual size_t columns() const = 0;

  // Whether the person has asked the program to stop (Ctrl+C). Any thread.
  [[nodiscard]] virtual bool interrupted() const = 0;
};

enum class Colour : int { red = 31, green = 32, yellow = 33 };

// The text in that colour where the console has colours, else as it is.
[[nodiscard]] std::string coloured(const Console& console, Colour colour, const std::string& text);

}  // namespace kvx::publish
