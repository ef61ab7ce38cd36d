#include "debug.h"

#include <fcntl.h>
#include <unistd.h>

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

void keepStandardStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) {
      // It gets the lowest free number, which is this one unless another thread opens files too.
      // The root directory is always there, and takes nothing that is written to it.
      const int null = open("/dev/null", O_RDWR);
      const int stream = null >= 0 ? null : open("/", O_RDONLY);
      if (stream > STDERR_FILENO) {
        close(stream);
      }
    }
  }
}
