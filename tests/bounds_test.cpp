// Bounds lists and the forcing of values into them.
#include "bounds.h"

#include <cstdlib>
#include <limits>
#include <vector>

#include "fatal.h"
#include "random.h"

namespace {

constexpr int LOWEST = std::numeric_limits<int>::min();
constexpr int HIGHEST = std::numeric_limits<int>::max();

// Steps by whole spans until the value is inside: the definition of wrapping.
int wrapByStepping(int in, int low, int high) {
  const long long span = static_cast<long long>(high) - low + 1;
  long long v = in;
  while (v > high) {
    v -= span;
  }
  while (v < low) {
    v += span;
  }
  return static_cast<int>(v);
}

TEST(RangeCheck, WrapsLikeSteppingAndClipsToTheLimitPassed) {
  Random random(1);
  for (int i = 0; i < 20000; ++i) {
    const int low = random.between(-200, 199);
    const int high = low + random.between(0, 49);
    const int in = random.between(-2000, 1999);
    ASSERT_EQ(rangeCheck(RANGE_WRAP, in, low, high), wrapByStepping(in, low, high))
        << in << " into " << low << ".." << high;
    const int clipped = in < low ? low : in > high ? high : in;
    ASSERT_EQ(rangeCheck(RANGE_CLIP, in, low, high), clipped);
    ASSERT_EQ(rangeCheck(static_cast<range_t>(1 + i % 300), in, low, high), clipped);
  }
}

TEST(RangeCheck, SpansWiderThan32BitsDoNotOverflow) {
  EXPECT_EQ(rangeCheck(RANGE_WRAP, HIGHEST, LOWEST, HIGHEST), HIGHEST);
  EXPECT_EQ(rangeCheck(RANGE_WRAP, HIGHEST, LOWEST, HIGHEST - 1), LOWEST);
  EXPECT_EQ(rangeCheck(RANGE_WRAP, LOWEST, LOWEST + 1, HIGHEST), HIGHEST);
  EXPECT_EQ(rangeCheck(RANGE_WRAP, LOWEST, 0, 9), wrapByStepping(LOWEST, 0, 9));
  EXPECT_EQ(rangeCheck(RANGE_WRAP, HIGHEST, -7, -5), wrapByStepping(HIGHEST, -7, -5));
  EXPECT_EQ(rangeCheck(RANGE_CLIP, LOWEST, HIGHEST, HIGHEST), HIGHEST);
}

TEST(RangeCheckDeathTest, LimitsTheWrongWayRoundAreFatal) {
  EXPECT_FATAL(rangeCheck(RANGE_CLIP, 1, 1, 0), "high >= low");
}

TEST(CalcNumBounds, CountsUpToEitherKindOfTerminator) {
  const bounds_t one[] = {{32, 126}, BOUNDS_END};
  const bounds_t three[] = {{48, 57}, {65, 90}, {97, 122}, BOUNDS_END};
  const bounds_t touching[] = {{0, 5}, {5, 9}, BOUNDS_END};
  const bounds_t none[] = {{1, 0}};
  const bounds_t closedByItself[] = {{LOWEST, LOWEST}, {1, 0}};
  EXPECT_EQ(calcNumBounds(nullptr), 0U);
  EXPECT_EQ(calcNumBounds(none), 0U);
  EXPECT_EQ(calcNumBounds(one), 1U);
  EXPECT_EQ(calcNumBounds(touching), 2U);
  EXPECT_EQ(calcNumBounds(three), 3U);
  EXPECT_EQ(calcNumBounds(closedByItself), 1U);
}

// The set as a plain list of members, and forcing as a search in it.
TEST(GetBoundsVal, AgreesWithASearchInTheSet) {
  Random random(2);
  for (int round = 0; round < 500; ++round) {
    std::vector<bounds_t> rows;
    int next = random.between(-20, 19);
    for (unsigned int n = 1 + random.below(4); n > 0; --n) {
      const int max = next + random.between(0, 5);
      rows.push_back({next, max});
      next = max + random.between(0, 5);  // 0: the next row touches this one
    }
    const unsigned int count = static_cast<unsigned int>(rows.size());
    rows.push_back(BOUNDS_END);
    ASSERT_EQ(calcNumBounds(rows.data()), count);

    const int low = rows.front().min;
    const int high = rows[count - 1].max;
    auto member = [&](int v) {
      for (unsigned int i = 0; i < count; ++i) {
        if (v >= rows[i].min && v <= rows[i].max) {
          return true;
        }
      }
      return false;
    };
    for (int v = low - 70; v <= high + 70; ++v) {
      for (const bool up : {false, true}) {
        for (const range_t policy : {RANGE_WRAP, RANGE_CLIP}) {
          int expected = policy == RANGE_CLIP ? (v < low    ? low
                                                 : v > high ? high
                                                            : v)
                                              : wrapByStepping(v, low, high);
          while (!member(expected)) {
            expected += up ? 1 : -1;
          }
          ASSERT_EQ(getBoundsVal(v, up, policy, rows.data(), count), expected) << v;
        }
      }
    }
  }
}

TEST(GetBoundsVal, AnEmptySetBoundsNothing) {
  const bounds_t rows[] = {{0, 5}, BOUNDS_END};
  EXPECT_EQ(getBoundsVal(LOWEST, true, RANGE_CLIP, nullptr, 0), LOWEST);
  EXPECT_EQ(getBoundsVal(LOWEST, true, RANGE_CLIP, nullptr, 3), LOWEST);
  EXPECT_EQ(getBoundsVal(HIGHEST, true, RANGE_CLIP, rows, 0), HIGHEST);
}

}  // namespace
