#include "tools/kvxpublish/platform/system_console.h"

#include <windows.h>
#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace kvx::publish {
namespace {

std::atomic<bool> stop_asked{false};
UINT former_code_page = 0;  // that the console had before the program; 0 without a console

// Runs on a thread of the system's. Not handling the second Ctrl+C lets the system end the program.
BOOL WINAPI take_ctrl_c(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  return stop_asked.exchange(true) ? FALSE : TRUE;
}

bool terminal_mode(DWORD stream, DWORD& mode) { return GetConsoleMode(GetStdHandle(stream), &mode) != 0; }

bool wants_colours() {
  const char* refused = std::getenv("NO_COLOR");
  return refused == nullptr || *refused == '\0';
}

// The console's own way of colouring, which older ones have too; `former` is what they show otherwise.
WORD attribute_of(int colour, WORD former) {
  constexpr WORD foreground = FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE | FOREGROUND_INTENSITY;
  const auto background = static_cast<WORD>(former & ~foreground);
  switch (static_cast<Colour>(colour)) {
    case Colour::red: return background | FOREGROUND_RED | FOREGROUND_INTENSITY;
    case Colour::green: return background | FOREGROUND_GREEN | FOREGROUND_INTENSITY;
    case Colour::yellow: return background | FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_INTENSITY;
    default: return former;
  }
}

void write_bytes(FILE* stream, std::string_view bytes) {
  static_cast<void>(std::fwrite(bytes.data(), 1, bytes.size(), stream));
  static_cast<void>(std::fflush(stream));
}

// Text with the marks that `coloured` puts into it: ESC, "[", the colour's number or 0, "m".
void write_coloured(HANDLE console, std::string_view text) {
  constexpr std::string_view mark = "\x1b[";
  CONSOLE_SCREEN_BUFFER_INFO info{};
  const WORD former = GetConsoleScreenBufferInfo(console, &info) != 0 ? info.wAttributes : WORD{0};
  for (size_t at = text.find(mark); at != std::string_view::npos; at = text.find(mark)) {
    write_bytes(stderr, text.substr(0, at));
    text.remove_prefix(at + mark.size());
    int colour = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), colour);
    text.remove_prefix(std::min(text.size(), static_cast<size_t>(end - text.data()) + 1));
    SetConsoleTextAttribute(console, attribute_of(colour, former));
  }
  write_bytes(stderr, text);
}

}  // namespace

SystemConsole::SystemConsole() {
  former_code_page = GetConsoleOutputCP();
  SetConsoleOutputCP(CP_UTF8);
  // No carriage returns: the output is for scripts too.
  static_cast<void>(_setmode(_fileno(stdout), _O_BINARY));
  static_cast<void>(_setmode(_fileno(stderr), _O_BINARY));
  DWORD mode = 0;
  is_terminal_ = terminal_mode(STD_ERROR_HANDLE, mode);
  has_colours_ = is_terminal_ && wants_colours();
  SetConsoleCtrlHandler(take_ctrl_c, TRUE);
}

SystemConsole::~SystemConsole() {
  SetConsoleCtrlHandler(take_ctrl_c, FALSE);
  if (former_code_page != 0) SetConsoleOutputCP(former_code_page);
}

void SystemConsole::write_data(std::string_view text) { write_bytes(stdout, text); }

void SystemConsole::write_message(std::string_view text) {
  if (has_colours_) {
    write_coloured(GetStdHandle(STD_ERROR_HANDLE), text);
  } else {
    write_bytes(stderr, text);
  }
}

size_t SystemConsole::columns() const {
  constexpr size_t customary_columns = 80;
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) == 0) return customary_columns;
  const int columns = info.srWindow.Right - info.srWindow.Left + 1;
  return columns > 0 ? static_cast<size_t>(columns) : customary_columns;
}

bool SystemConsole::interrupted() const { return stop_asked.load(); }

}  // namespace kvx::publish
