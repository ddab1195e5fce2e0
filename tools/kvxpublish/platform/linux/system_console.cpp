#include "tools/kvxpublish/platform/system_console.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/ioctl.h>

namespace kvx::publish {
namespace {

constexpr int ending_signals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<bool> stop_asked{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// The next signal of any of these kinds ends the program.
void ask_to_stop(int /*signal*/) {
  stop_asked.store(true);
  for (const int signal : ending_signals) ::signal(signal, SIG_DFL);
}

// A program that was started to outlive its terminal ignores SIGHUP.
bool is_ignored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void write_bytes(FILE* stream, std::string_view bytes) {
  static_cast<void>(std::fwrite(bytes.data(), 1, bytes.size(), stream));
  static_cast<void>(std::fflush(stream));
}

bool wants_colours() {
  const char* refused = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return (refused == nullptr || *refused == '\0') && terminal != nullptr && std::string_view(terminal) != "dumb";
}

}  // namespace

SystemConsole::SystemConsole() {
  is_terminal_ = ::isatty(STDERR_FILENO) == 1;
  has_colours_ = is_terminal_ && wants_colours();
  struct sigaction action {};
  action.sa_handler = ask_to_stop;
  action.sa_flags = SA_RESTART;
  for (const int signal : ending_signals) {
    if (signal != SIGHUP || !is_ignored(signal)) ::sigaction(signal, &action, nullptr);
  }
  ::signal(SIGPIPE, SIG_IGN);  // a reader that goes away must not leave half of a release behind
}

SystemConsole::~SystemConsole() {
  for (const int signal : ending_signals) ::signal(signal, SIG_DFL);
}

void SystemConsole::write_data(std::string_view text) { write_bytes(stdout, text); }

void SystemConsole::write_message(std::string_view text) { write_bytes(stderr, text); }

size_t SystemConsole::columns() const {
  constexpr size_t customary_columns = 80;
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : customary_columns;
}

bool SystemConsole::interrupted() const { return stop_asked.load(); }

}  // namespace kvx::publish
