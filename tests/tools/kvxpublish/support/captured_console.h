// A console that keeps what a command says.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "tools/kvxpublish/cli/console.h"

namespace kvx::test {

class CapturedConsole : public publish::Console {
 public:
  std::string data;
  std::string messages;
  bool terminal = false;
  bool colours = false;
  size_t width = 80;
  // Called before every piece that is read, on any thread, on one at a time.
  std::function<bool()> stop_asked;

  void write_data(std::string_view text) override { data += text; }
  void write_message(std::string_view text) override { messages += text; }
  [[nodiscard]] bool is_terminal() const override { return terminal; }
  [[nodiscard]] bool has_colours() const override { return colours; }
  [[nodiscard]] size_t columns() const override { return width; }
  [[nodiscard]] bool interrupted() const override {
    const std::scoped_lock lock(mutex_);
    return stop_asked && stop_asked();
  }

 private:
  mutable std::mutex mutex_;
};

}  // namespace kvx::test
