// Bounds lists: the set of values that a variable may hold, as inclusive ranges with gaps.
//
// A list is an array of rows in ascending order, each row's min not below the previous row's max,
// closed by a terminator: a row whose max is below its min, or whose min is below the previous
// row's max. BOUNDS_END closes every list whose last max is above the lowest int. A null list
// means unbounded; a list has at least one real row. The lists belong to the application and
// outlive what uses them. Pure functions; any thread.
#pragma once

#include "range.h"

/// One inclusive range.
struct bounds_t {
  int min;  ///< lowest allowed value
  int max;  ///< highest allowed value
};

/// The row that closes a list.
constexpr bounds_t BOUNDS_END = {-2147483647 - 1, 2147483647};

/// Number of rows of the list `bounds`, its terminator not counted; 0 for null.
unsigned int calcNumBounds(const bounds_t* bounds);

/// Forces `v` into the first `numBounds` rows of `bounds`. `overflow` decides a value outside the
/// span of all rows, and `up` a value in a gap: to the row above, or to the row below. A null list
/// or a count of 0 returns `v`. Linear in the number of rows.
int getBoundsVal(int v, bool up, range_t overflow, const bounds_t* bounds, unsigned int numBounds);
