#include "foundations/version_number.h"

#include <gmock/gmock.h>
#include <string>

namespace kvx {
namespace {

using testing::ElementsAre;

TEST(ParseVersion, YieldsTheNumbersInOrder) {
  std::vector<uint32_t> components{7, 7};
  ASSERT_TRUE(parse_version("0.010.1000000000.3", components));
  EXPECT_THAT(components, ElementsAre(0U, 10U, 1000000000U, 3U));
  ASSERT_TRUE(parse_version("5", components));
  EXPECT_THAT(components, ElementsAre(5U));
}

TEST(IsVersion, AcceptsOneToFourNumbersWithSingleDots) {
  for (const char* text :
       {"1", "0", "1.2", "1.2.3", "1.2.3.4", "0.10.0", "01.0", "1000000000", "1.1000000000",
        "1000000000.1.1.1000000000", "00000000000000000000000000000001", "0000000.0000000.0000000.00000001"}) {
    EXPECT_TRUE(is_version(text)) << text;
  }
}

TEST(IsVersion, RefusesEverythingElse) {
  for (const char* text : {"",
                           "1.",
                           ".1",
                           ".",
                           "1..2",
                           "v1",
                           "1.2.3.4.5",
                           "1.2.3.4.",
                           "1 .2",
                           " 1",
                           "1 ",
                           "1.2-beta",
                           "1.2000000000",
                           "1000000001",
                           "1.1000000001",
                           "18446744073709551617",
                           "4294967296",
                           "-1",
                           "+1",
                           "1,2",
                           "1.\xD9\xA1",
                           "1/2",
                           "1:2",
                           "1.2\n",
                           "000000000000000000000000000000001",
                           "0000000.0000000.0000000.000000001"}) {
    EXPECT_FALSE(is_version(text)) << text;
  }
  EXPECT_FALSE(is_version(std::string("1\0", 2)));
}

TEST(CompareVersions, ComparesNumbersAndCountsMissingOnesAsZero) {
  struct Case {
    const char* a;
    const char* b;
    int expected;
  };
  for (const Case& c : {Case{"1.2", "1.2.0.0", 0},
                        {"1.10", "1.9", 1},
                        {"1", "1.0.0.1", -1},
                        {"2", "1.9.9.9", 1},
                        {"01.02", "1.2", 0},
                        {"0", "0.0.0.0", 0},
                        {"1.2.3.4", "1.2.3.5", -1},
                        {"10", "9", 1},
                        {"1000000000", "999999999", 1},
                        {"1.2.4", "1.2.3.9", 1}}) {
    EXPECT_EQ(compare_versions(c.a, c.b), c.expected) << c.a << " and " << c.b;
    EXPECT_EQ(compare_versions(c.b, c.a), -c.expected) << c.b << " and " << c.a;
  }
}

TEST(CompareVersions, DecidesNothingOnATextThatIsNoVersion) {
  for (const char* text : {"x", "", "1.", "1.2.3.4.5", "1000000001"}) {
    EXPECT_EQ(compare_versions("1.2", text), 0) << text;
    EXPECT_EQ(compare_versions(text, "1.2"), 0) << text;
  }
}

}  // namespace
}  // namespace kvx
