// Overflow policy and the check of one value against one range. Pure functions; any thread.
#pragma once

/// What becomes of a value outside its range.
enum range_t {
  RANGE_WRAP = 0,  ///< it comes back in from the other side, modulo the size of the range
  RANGE_CLIP = 1,  ///< it is replaced by the limit that it passed
};

/// Forces `in` into the inclusive range `low` to `high`. Every `overflow` but RANGE_WRAP clips.
/// REQUIRES: `high` is not below `low`.
int rangeCheck(range_t overflow, int in, int low, int high);
