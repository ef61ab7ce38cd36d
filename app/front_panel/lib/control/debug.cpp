#include "debug.h"

#include <cstdio>
#include <cstdlib>

#include "board.h"

void __assert(const char* expr, const char* file, int line) noexcept {
  std::printf("Assertion failed: %s, file %s, line %d\n", expr, file, line);
  std::fflush(stdout);
  bootFlashCommand(BOOT_FLASH_READ_STATUS);
  while ((bootFlashWord() & BOOT_FLASH_READY) == 0) {
  }
  bootFlashCommand(BOOT_FLASH_READ_ARRAY);
  std::abort();
}

void ctrlAssertFailed(const char* expr, const char* file, int line, const char* func) {
  char text[512];
  // The condition is cut rather than the name of the function behind it.
  std::snprintf(text, sizeof text, "%.350s, function %.128s", expr, func);
  __assert(text, file, line);
}
