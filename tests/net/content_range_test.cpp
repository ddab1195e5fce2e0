#include "net/content_range.h"

#include <gtest/gtest.h>

#include "foundations/text.h"

namespace kvx {
namespace {

TEST(IsExpectedRange, AcceptsTheRestOfTheFileOnly) {
  struct Case {
    const wchar_t* text;
    uint64_t offset;
    uint64_t total_size;
    bool expected;
  };
  for (const Case& c : {
           Case{L"bytes 500-999/1000", 500, 1000, true},
           {L"bytes 500-999/*", 500, 1000, true},
           {L"bytes 500-999/", 500, 1000, true},
           {L"bytes 500-999/*and more", 500, 1000, true},
           {L"bytes 500-999/1000 and more", 500, 1000, true},
           {L"bytes    500-999/1000", 500, 1000, true},
           {L"bytes500-999/1000", 500, 1000, true},
           {L"  bytes 500-999/1000", 500, 1000, true},
           {L"unit=bytes 500-999/1000", 500, 1000, true},
           {L"bytes 00500-0999/001000", 500, 1000, true},
           {L"bytes 1-1/2", 1, 2, true},
           {L"bytes 0-999/1000", 0, 1000, true},
           {L"bytes 4294967296-8589934591/8589934592", 4294967296, 8589934592, true},
           // Another piece or another file.
           {L"bytes 500-998/1000", 500, 1000, false},
           {L"bytes 500-1000/1000", 500, 1000, false},
           {L"bytes 500-1000/1001", 500, 1000, false},
           {L"bytes 400-999/1000", 500, 1000, false},
           {L"bytes 501-999/1000", 500, 1000, false},
           {L"bytes 0-999/1000", 500, 1000, false},
           {L"bytes 500-999/1001", 500, 1000, false},
           {L"bytes 500-999/999", 500, 1000, false},
           {L"bytes 500-999/0", 500, 1000, false},
           {L"bytes 400-999/*", 500, 1000, false},
           {L"bytes 500-998/*", 500, 1000, false},
           {L"bytes 500-998/", 500, 1000, false},
           // Not the form.
           {L"", 500, 1000, false},
           {L"byte", 500, 1000, false},
           {L"bytes", 500, 1000, false},
           {L"bytes ", 500, 1000, false},
           {L"BYTES 500-999/1000", 500, 1000, false},
           {L"500-999/1000", 500, 1000, false},
           {L"octets 500-999/1000", 500, 1000, false},
           {L"bytes\t500-999/1000", 500, 1000, false},
           {L"bytes=500-999/1000", 500, 1000, false},
           {L"bytes */1000", 500, 1000, false},
           {L"bytes 500", 500, 1000, false},
           {L"bytes 500-", 500, 1000, false},
           {L"bytes 500-/1000", 500, 1000, false},
           {L"bytes -999/1000", 500, 1000, false},
           {L"bytes +500-999/1000", 500, 1000, false},
           {L"bytes 500 -999/1000", 500, 1000, false},
           {L"bytes 500- 999/1000", 500, 1000, false},
           {L"bytes 500-999", 500, 1000, false},
           {L"bytes 500-999 /1000", 500, 1000, false},
           {L"bytes 500-999/ 1000", 500, 1000, false},
           {L"bytes 500-999/x", 500, 1000, false},
           {L"bytes x bytes 500-999/1000", 500, 1000, false},  // the first "bytes" counts
       }) {
    EXPECT_EQ(is_expected_range(c.text, c.offset, c.total_size), c.expected) << to_utf8(c.text);
  }
}

TEST(TakeNumber, TakesTheLeadingDigitsOnly) {
  struct Case {
    const wchar_t* text;
    bool taken;
    uint64_t number;
    const wchar_t* rest;
  };
  for (const Case& c : {Case{L"999", true, 999, L""},
                        {L"0", true, 0, L""},
                        {L"12ab", true, 12, L"ab"},
                        {L"7 8", true, 7, L" 8"},
                        {L"18446744073709551615", true, UINT64_MAX, L""},
                        {L"", false, 0, L""},
                        {L"x1", false, 0, L"x1"},
                        {L" 1", false, 0, L" 1"},
                        {L"-1", false, 0, L"-1"},
                        {L"\u0661", false, 0, L"\u0661"}}) {
    std::wstring_view text = c.text;
    uint64_t number = 77;
    EXPECT_EQ(take_number(text, number), c.taken) << to_utf8(c.text);
    EXPECT_EQ(number, c.number) << to_utf8(c.text);
    EXPECT_EQ(to_utf8(text), to_utf8(c.rest)) << to_utf8(c.text);
  }
}

}  // namespace
}  // namespace kvx
