// Bounds lists and the forcing of values into them.
#include "bounds.h"

#include <algorithm>
#include <climits>

#include "fatal.h"
#include "random.h"

namespace {

// The number between `low` and `high` that lies a whole number of spans from `in`.
int wrapped(long long in, long long low, long long high) {
  const long long span = high - low + 1;
  return static_cast<int>(low + ((in - low) % span + span) % span);
}

TEST(RangeCheck, SpansWiderThan32BitsDoNotOverflow) {
  EXPECT_EQ(rangeCheck(RANGE_WRAP, INT_MAX, INT_MIN, INT_MAX), INT_MAX);
  EXPECT_EQ(rangeCheck(RANGE_WRAP, INT_MAX, INT_MIN, INT_MAX - 1), INT_MIN);
  EXPECT_EQ(rangeCheck(RANGE_WRAP, INT_MIN, INT_MIN + 1, INT_MAX), INT_MAX);
  EXPECT_EQ(rangeCheck(RANGE_WRAP, INT_MIN, 0, 9), 2);
  EXPECT_EQ(rangeCheck(RANGE_WRAP, INT_MAX, -7, -5), -5);
  EXPECT_EQ(rangeCheck(RANGE_CLIP, INT_MIN, INT_MAX, INT_MAX), INT_MAX);
  EXPECT_FATAL(rangeCheck(RANGE_CLIP, 1, 1, 0), "high >= low");
}

// The set as a plain list of members, and forcing as a search in it.
TEST(GetBoundsVal, AgreesWithASearchInTheSet) {
  Random random(2);
  for (int round = 0; round < 500; ++round) {
    std::vector<bounds_t> rows;
    std::vector<int> members;
    int next = random.between(-20, 19);
    for (unsigned int n = 1 + random.below(4); n > 0; --n) {
      rows.push_back({next, next + random.between(0, 5)});
      for (; next <= rows.back().max; ++next) {
        members.push_back(next);
      }
      next += random.between(-1, 4);  // -1: the next row begins where this one ends
    }
    const unsigned int count = static_cast<unsigned int>(rows.size());
    rows.push_back(BOUNDS_END);
    ASSERT_EQ(calcNumBounds(rows.data()), count);
    const int low = members.front();
    const int high = members.back();
    for (int v = low - 70; v <= high + 70; ++v) {
      for (const range_t policy : {RANGE_WRAP, RANGE_CLIP, static_cast<range_t>(2 + round)}) {
        const int inside =
            policy == RANGE_WRAP ? wrapped(v, low, high) : std::min(std::max(v, low), high);
        const auto above = std::lower_bound(members.begin(), members.end(), inside);
        const auto below = std::prev(std::upper_bound(members.begin(), members.end(), inside));
        ASSERT_EQ(getBoundsVal(v, true, policy, rows.data(), count), *above) << v;
        ASSERT_EQ(getBoundsVal(v, false, policy, rows.data(), count), *below) << v;
      }
    }
  }
}

TEST(GetBoundsVal, AnEmptySetBoundsNothing) {
  const bounds_t none[] = {{1, 0}};
  const bounds_t closedByItself[] = {{INT_MIN, INT_MIN}, {1, 0}};
  EXPECT_EQ(calcNumBounds(nullptr) + calcNumBounds(none), 0U);
  EXPECT_EQ(calcNumBounds(closedByItself), 1U);
  EXPECT_EQ(getBoundsVal(INT_MIN, true, RANGE_CLIP, nullptr, 3), INT_MIN);
  EXPECT_EQ(getBoundsVal(INT_MAX, true, RANGE_CLIP, none, 0), INT_MAX);
}

}  // namespace
