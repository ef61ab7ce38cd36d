// Counts heap allocations, for tests of paths that must not make any.
#pragma once

#include <cstddef>

/// Calls of operator new in this process so far.
std::size_t allocationCount();
