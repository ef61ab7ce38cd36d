#include "debug.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "board.h"

namespace {

thread_local const AssertSubject* subject = nullptr;

std::mutex guardLock;  // for the two below
unsigned int guards = 0;
bool standsIn[STDERR_FILENO + 1] = {};  // the null device is at this descriptor, and is ours

// Puts the null device at `fd`, which is closed, unless another thread is faster. The root
// directory is always there, and takes nothing that is written to it either.
void standIn(int fd) {
  int got = open("/dev/null", O_RDWR);
  if (got < 0) {
    got = open("/", O_RDONLY);
  }
  if (got >= 0 && got < fd) {
    const int low = got;
    got = fcntl(low, F_DUPFD, fd);
    close(low);
  }
  if (got > fd) {
    close(got);
  }
  standsIn[fd] = got == fd;
}

}  // namespace

AssertSubject::AssertSubject(const char* what, unsigned int first, unsigned int second)
    : form(what), number(first), index(second), outer(subject) {
  subject = this;
}

AssertSubject::~AssertSubject() {
  subject = outer;
}

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
  if (subject != nullptr) {
    std::printf(subject->form, subject->number, subject->index);
  }
  __assert(text, file, line);
}

StreamGuard::StreamGuard() {
  const std::lock_guard<std::mutex> lock(guardLock);
  ++guards;
  for (int fd = STDOUT_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) {
      standIn(fd);
    }
  }
}

StreamGuard::~StreamGuard() {
  const std::lock_guard<std::mutex> lock(guardLock);
  if (--guards > 0) {
    return;
  }
  for (int fd = STDOUT_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (standsIn[fd]) {
      close(fd);
      standsIn[fd] = false;
    }
  }
}
