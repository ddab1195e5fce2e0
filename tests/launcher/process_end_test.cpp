#include "launcher/process_end.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundations/paths.h"
#include "foundations/text.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_paths.h"
#include "tests/support/test_process.h"

namespace kvx {
namespace {

TEST(ProcessEnd, IsAtOnceAndSaysWhyWhereItCan) {
  struct Case {
    const wchar_t* way;
    uint32_t code;
    std::vector<std::string> log;
  };
  for (const Case& c : {Case{L"memory", 99, {"started", "out of memory"}},
                        Case{L"memory-on-a-thread", 99, {"started", "out of memory"}},
                        Case{L"memory-for-the-log", 99, {"started"}},  // the end has no log to say why in
                        Case{L"exception", 99, {"started"}}, Case{L"exception-on-a-thread", 99, {"started"}},
                        Case{L"terminate", 99, {"started"}}, Case{L"end", 60, {"started"}}}) {
    SCOPED_TRACE(to_utf8(c.way));
    const test::TempFolder folder;
    const std::wstring log = folder / L"end.log";
    const test::TestProcess program(full_path(to_wide(test::build_path(KVX_ENDING_PROGRAM))),
                                    c.way + (L" " + quote_argument(log)), folder.path());
    EXPECT_EQ(program.wait(), c.code);
    EXPECT_EQ(test::log_messages(test::read_text(log)), c.log);
  }
}

}  // namespace
}  // namespace kvx
