#include "range.h"

#include "debug.h"

int rangeCheck(range_t overflow, int in, int low, int high) {
  CTRL_ASSERT(high >= low);
  if (in >= low && in <= high) {
    return in;
  }
  const int passed = in > high ? high : low;
  if (overflow != RANGE_WRAP) {
    return passed;
  }
  // 64 bits hold every span of 32-bit numbers and every distance between two of them.
  const long long span = static_cast<long long>(high) - low + 1;
  const long long opposite = in > high ? low : high;
  return static_cast<int>(in + (opposite - in) / span * span);
}
