#include "foundations/display_format.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace kvx {
namespace {

TEST(FormatSize, RoundsWithinTheUnitAndNeverPromotes) {
  struct Case {
    uint64_t bytes;
    const wchar_t* expected;
  };
  for (const Case& c : {Case{0, L"0 bytes"},
                        {1, L"1 bytes"},
                        {1023, L"1023 bytes"},
                        {1024, L"1 KB"},
                        {1025, L"1 KB"},
                        {1535, L"1 KB"},
                        {1536, L"2 KB"},
                        {2560, L"2 KB"},  // half to even
                        {10240, L"10 KB"},
                        {1048063, L"1023 KB"},
                        {1048575, L"1024 KB"},
                        {1048576, L"1.0 MB"},
                        {1101004, L"1.0 MB"},
                        {1101005, L"1.1 MB"},
                        {5242880, L"5.0 MB"},
                        {1073741823, L"1024.0 MB"},
                        {1073741824, L"1.00 GB"},
                        {1610612736, L"1.50 GB"},
                        {1099511627776, L"1024.00 GB"},
                        {9223372036854775808ULL, L"8589934592.00 GB"},
                        {std::numeric_limits<uint64_t>::max(), L"17179869184.00 GB"}}) {
    EXPECT_EQ(format_size(c.bytes), c.expected) << c.bytes;
  }
}

TEST(FormatDuration, ShowsTheUnitThatTheTimeFallsIn) {
  struct Case {
    double seconds;
    const wchar_t* expected;
  };
  for (const Case& c : {Case{0, L"about 0 s"},
                        {-0.0, L"about 0 s"},
                        {0.4, L"about 0 s"},
                        {0.5, L"about 1 s"},
                        {59.4, L"about 59 s"},
                        {59.5, L"about 60 s"},
                        {59.6, L"about 60 s"},
                        {59.999, L"about 60 s"},
                        {60, L"about 1 min"},
                        {89.9, L"about 1 min"},
                        {90, L"about 2 min"},
                        {3569, L"about 59 min"},
                        {3590, L"about 60 min"},
                        {3599.9, L"about 60 min"},
                        {3600, L"about 1 h 00 min"},
                        {3629, L"about 1 h 00 min"},
                        {3630, L"about 1 h 01 min"},
                        {3900, L"about 1 h 05 min"},
                        {7169, L"about 1 h 59 min"},
                        {7170, L"about 2 h 00 min"},
                        {7199, L"about 2 h 00 min"},
                        {359999, L"about 100 h 00 min"},
                        {360000, L"about 100 h 00 min"}}) {
    EXPECT_EQ(format_duration(c.seconds), c.expected) << c.seconds;
  }
}

TEST(FormatDuration, ShowsNothingForATimeThatIsNoEstimate) {
  for (const double seconds :
       {-1.0, -0.001, 360000.5, 360001.0, 1e300, std::numeric_limits<double>::infinity(), std::nan("")}) {
    EXPECT_EQ(format_duration(seconds), L"") << seconds;
  }
}

}  // namespace
}  // namespace kvx
