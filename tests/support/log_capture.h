// What the program logs during a test.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/temp_folder.h"

namespace kvx::test {

// The messages of a log file's bytes, without time, thread id and line end. A line of another form fails the test.
[[nodiscard]] std::vector<std::string> log_messages(std::string_view log_bytes);

// Opens the program's log in a folder of its own and closes it at the end. The log is one per process: no other may be
// open at the same time.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  // The messages so far, in order.
  [[nodiscard]] std::vector<std::string> messages() const { return log_messages(read_text(path_)); }

 private:
  TempFolder folder_;
  std::wstring path_;
};

}  // namespace kvx::test
