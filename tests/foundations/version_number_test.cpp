#include "foundations/version_number.h"

#include <gtest/gtest.h>

namespace kvx {
namespace {

TEST(IsVersion, AcceptsOneToFourNumbersWithSingleDots) {
  for (const char* text : {"1", "0", "1.2.3.4", "0.10.0", "01.0", "1000000000", "1.1000000000", "00000000000000000000000000000001"}) {
    EXPECT_TRUE(is_version(text)) << text;
  }
}

TEST(IsVersion, RefusesEverythingElse) {
  for (const char* text : {"", "1.", ".1", ".", "1..2", "v1", "1.2.3.4.5", "1 .2", " 1", "1 ", "1.2-beta", "1.2000000000",
                           "1000000001", "-1", "+1", "1,2", "000000000000000000000000000000001"}) {
    EXPECT_FALSE(is_version(text)) << text;
  }
}

TEST(CompareVersions, ComparesNumbersAndCountsMissingOnesAsZero) {
  struct Case {
    const char* a;
    const char* b;
    int expected;
  };
  for (const Case& c : {Case{"1.2", "1.2.0.0", 0}, {"1.10", "1.9", 1}, {"1.9", "1.10", -1}, {"1", "1.0.0.1", -1},
                        {"2", "1.9.9.9", 1}, {"01.02", "1.2", 0}, {"1.2", "x", 0}, {"x", "1.2", 0}, {"", "1", 0}}) {
    EXPECT_EQ(compare_versions(c.a, c.b), c.expected) << c.a << " and " << c.b;
  }
}

}  // namespace
}  // namespace kvx
