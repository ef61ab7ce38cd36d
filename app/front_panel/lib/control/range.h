// Overflow policy, and the check of one value against one range.
//
// Every number is a range_t: the test is against RANGE_WRAP, and all others clip. Pure functions
// that any thread may call. A range whose limits stand the wrong way round stops the process.
#pragma once

/// What becomes of a value outside its range.
enum range_t : unsigned int {
  RANGE_WRAP = 0,  ///< it comes back in from the other side, modulo the size of the range
  RANGE_CLIP = 1,  ///< it is replaced by the limit that it passed
};

/// Forces `in` into the inclusive range `low` to `high`. Every `overflow` but RANGE_WRAP clips.
/// REQUIRES: `high` is not below `low`.
int rangeCheck(range_t overflow, int in, int low, int high);
