#include "bounds.h"

unsigned int calcNumBounds(const bounds_t* bounds) {
  if (bounds == nullptr) {
    return 0;
  }
  unsigned int count = 0;
  while (bounds[count].max >= bounds[count].min) {
    ++count;
    if (bounds[count - 1].max > bounds[count].min) {
      break;
    }
  }
  return count;
}

int getBoundsVal(int v, bool up, range_t overflow, const bounds_t* bounds, unsigned int numBounds) {
  if (bounds == nullptr || numBounds == 0) {
    return v;
  }
  const bounds_t* const last = bounds + numBounds - 1;
  const int r = rangeCheck(overflow, v, bounds->min, last->max);
  for (const bounds_t* row = bounds; row != last && r > row->max; ++row) {
    if (r < row[1].min) {
      return up ? row[1].min : row->max;
    }
  }
  return r;
}
