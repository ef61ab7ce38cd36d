#include "debug.h"

#include <cstdio>
#include <cstdlib>

void ctrlAssertFailed(const char* expr, const char* file, int line, const char* func) {
  std::printf("Assertion failed: %s, function %s, file %s, line %d\n", expr, func, file, line);
  std::fflush(stdout);
  std::abort();
}
