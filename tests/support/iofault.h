// Makes file operations of the process under test fail.
//
// Included in one source file of a test, it takes the place of the C library's functions, also for
// the shared libraries. Loop over failFrom(1), failFrom(2), ... until an attempt succeeds with
// faultsLeft() true: then every operation of it has failed once.
#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace iofault {

inline std::atomic<int> countdown{INT_MAX};  // operations up to the first that fails
inline std::atomic<bool> goesOn{false};      // those behind it fail as well
inline int error = ENOSPC;                   // what they fail with

/// The `n`-th operation from now on fails, and with `forEver` all that follow it.
inline void failFrom(int n, bool forEver) {
  goesOn = forEver;
  countdown = n;
}

/// No operation fails any more.
inline void heal() {
  countdown = INT_MAX;
  error = ENOSPC;
}

/// True while the operation that shall fail has not come.
inline bool faultsLeft() {
  return countdown > 0;
}

inline std::string* trace = nullptr;  // where the names of the operations are noted, or null

inline bool due(const char* name) {
  if (trace != nullptr) {
    *trace += std::string(name) + " ";
  }
  const int left = --countdown;
  const bool fails = left == 0 || (left < 0 && goesOn);
  errno = fails ? error : errno;
  return fails;
}

// The function behind our own. Where offsets and times are wider than the C library's plain ones,
// its header has given both another name, which stands at our own.
template <class Function>
Function* real(const char* name, Function* own) {
  void* const address = reinterpret_cast<void*>(own);
  Dl_info found;
  const bool named = dladdr(address, &found) != 0 && found.dli_saddr == address;
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, named ? found.dli_sname : name));
}

}  // namespace iofault

#define IOFAULT_PASS(name, failure, ...)                    \
  static const auto function = iofault::real(#name, &name); \
  return iofault::due(#name) ? failure : function(__VA_ARGS__)

extern "C" {

ssize_t write(int fd, const void* buf, size_t size) {
  IOFAULT_PASS(write, -1, fd, buf, size);
}

ssize_t writev(int fd, const iovec* parts, int count) {
  IOFAULT_PASS(writev, -1, fd, parts, count);
}

FILE* fopen64(const char* path, const char* mode) {
  IOFAULT_PASS(fopen64, nullptr, path, mode);
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  IOFAULT_PASS(open, -1, path, flags, mode);
}

int fsync(int fd) {
  IOFAULT_PASS(fsync, -1, fd);
}

int fchmod(int fd, mode_t mode) noexcept {
  IOFAULT_PASS(fchmod, -1, fd, mode);
}

int link(const char* from, const char* to) noexcept {
  IOFAULT_PASS(link, -1, from, to);
}

int rename(const char* from, const char* to) noexcept {
  IOFAULT_PASS(rename, -1, from, to);
}

}  // extern "C"
