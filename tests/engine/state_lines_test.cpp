#include "engine/state_lines.h"

#include <gmock/gmock.h>

namespace kvx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

StateValues values_of(std::string_view text) {
  StateValues values{{"before", "1"}};
  read_state_lines(text, values);
  return values;
}

TEST(StateLines, AreKeysAndValuesAroundTheFirstEqualsSign) {
  EXPECT_THAT(values_of("a=1\r\nb=c=d\nk=\n x = y \n"),
              ElementsAre(Pair(" x ", " y "), Pair("a", "1"), Pair("b", "c=d"), Pair("k", "")));
}

TEST(StateLines, WithoutAKeyAreSkipped) {
  EXPECT_THAT(values_of(""), IsEmpty());
  EXPECT_THAT(values_of("\n\r\n=x\nno sign\n"), IsEmpty());
}

TEST(StateLines, OfTheSameKeyCountLast) { EXPECT_THAT(values_of("k=1\nk=2"), ElementsAre(Pair("k", "2"))); }

TEST(StateLines, AreWrittenInTheOrderOfTheirKeys) {
  EXPECT_EQ(state_lines({{"serial.live", "42"}, {"complete", "1"}}), "complete=1\nserial.live=42\n");
  EXPECT_EQ(state_lines({}), "");
}

}  // namespace
}  // namespace kvx
