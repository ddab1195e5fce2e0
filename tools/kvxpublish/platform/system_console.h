// The console of the running program: its standard streams. One in a process.
#pragma once

#include "tools/kvxpublish/cli/console.h"

namespace kvx::publish {

class SystemConsole : public Console {
 public:
  // Takes over Ctrl+C, and on Linux the signals that end a program (SIGINT, SIGTERM, SIGHUP): the first of them only
  // asks to stop, a second one ends the program as usual. Text is UTF-8 as long as the object lives.
  SystemConsole();
  SystemConsole(const SystemConsole&) = delete;
  SystemConsole& operator=(const SystemConsole&) = delete;
  ~SystemConsole() override;

  void write_data(std::string_view text) override;
  void write_message(std::string_view text) override;
  [[nodiscard]] bool is_terminal() const override { return is_terminal_; }
  [[nodiscard]] bool has_colours() const override { return has_colours_; }
  [[nodiscard]] size_t columns() const override;
  [[nodiscard]] bool interrupted() const override;

 private:
  bool is_terminal_ = false;
  bool has_colours_ = false;
};

}  // namespace kvx::publish
