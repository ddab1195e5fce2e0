#include "foundations/unique_handle.h"

#include <gmock/gmock.h>
#include <vector>

namespace kvx {
namespace {

using testing::ElementsAre;

std::vector<int> closed;

struct NumberTraits {
  using value_type = int;
  static value_type none() { return -1; }
  static void close(value_type value) { closed.push_back(value); }
};
using Number = UniqueHandle<NumberTraits>;

class UniqueHandleTest : public testing::Test {
 protected:
  UniqueHandleTest() { closed.clear(); }
};

TEST_F(UniqueHandleTest, ClosesItsValueOnceAndNeverNone) {
  {
    const Number empty;
    const Number none(-1);
    const Number zero(0);
    EXPECT_FALSE(empty);
    EXPECT_FALSE(none);
    EXPECT_TRUE(zero);  // "none" is the type's own value
    EXPECT_EQ(zero.get(), 0);
  }
  EXPECT_THAT(closed, ElementsAre(0));
}

TEST_F(UniqueHandleTest, MovesItsValue) {
  Number first(1);
  Number second(std::move(first));
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): a moved-from handle is none by contract
  Number third(3);
  third = std::move(second);
  EXPECT_THAT(closed, ElementsAre(3));
  EXPECT_EQ(third.get(), 1);
  Number& same = third;
  third = std::move(same);
  EXPECT_EQ(third.get(), 1);
  EXPECT_THAT(closed, ElementsAre(3));
}

TEST_F(UniqueHandleTest, ResetClosesAndReleaseDoesNot) {
  Number number(1);
  number.reset(2);
  EXPECT_THAT(closed, ElementsAre(1));
  number.reset();
  EXPECT_THAT(closed, ElementsAre(1, 2));
  number.reset(3);
  EXPECT_EQ(number.release(), 3);
  EXPECT_FALSE(number);
  number.reset();
  EXPECT_THAT(closed, ElementsAre(1, 2));
}

}  // namespace
}  // namespace kvx
