#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include "foundations/log.h"
#include "foundations/paths.h"

namespace kvx::test {
namespace {

// "2026-11-14 16:53:06.042 [ 4812] ": everything up to the first "] ", which neither a time nor a thread id contains.
constexpr size_t stamp_chars = 24;
constexpr std::string_view stamp_end = "] ";

}  // namespace

std::vector<std::string> log_messages(std::string_view log_bytes) {
  std::vector<std::string> messages;
  while (!log_bytes.empty()) {
    const size_t line_end = log_bytes.find("\r\n");
    const std::string_view line = log_bytes.substr(0, line_end);
    const size_t thread_id_end = line.find(stamp_end);
    if (line_end == std::string_view::npos || line.size() < stamp_chars || line[stamp_chars] != '[' ||
        thread_id_end == std::string_view::npos) {
      ADD_FAILURE() << "not a line of a log: " << line;
      return messages;
    }
    messages.emplace_back(line.substr(thread_id_end + stamp_end.size()));
    log_bytes.remove_prefix(line_end + 2);
  }
  return messages;
}

LogCapture::LogCapture() : path_(long_path(folder_ / L"launcher.log")) {
  log::open(path_);
  if (!exists(path_)) ADD_FAILURE() << "the log did not open; is another one open?";
}

LogCapture::~LogCapture() { log::close(); }

}  // namespace kvx::test
