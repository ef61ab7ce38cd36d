#include "filereplace.h"

#include <fcntl.h>
#include <persist.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "debug.h"

namespace {

[[noreturn]] void failOn(const char* what, const std::string& name) {
  throw eternity::exception(std::string(what) + name + ": " + std::strerror(errno));
}

// The directory of `path` with its slash; empty when that is the working directory.
std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// The path behind the symbolic links of the last component; the file need not exist.
std::string followLinks(std::string path) {
  constexpr int MOST_LINKS = 8;
  char link[PATH_MAX];
  for (int i = 0; i < MOST_LINKS; ++i) {
    const ssize_t length = readlink(path.c_str(), link, sizeof link);
    if (length < 0) {
      return path;
    }
    std::string to(link, static_cast<std::size_t>(length));
    if (to[0] != '/') {
      to.insert(0, directoryOf(path));
    }
    path = to;
  }
  errno = ELOOP;
  failOn("cannot follow ", path);
}

// Fills `state` for the file `path`; false when there is none. A file that is there and cannot be
// looked at must not be taken for one that may be made anew.
bool find(const std::string& path, struct stat& state) {
  if (lstat(path.c_str(), &state) == 0) {
    return true;
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    failOn("cannot look at ", path);
  }
  return false;
}

// Flushes the directory `path`, in which `fd` is an open file.
void flushDirectory(const std::string& path, int fd) {
  const int directory = open(path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) {
    // A directory that may be written and not read is flushed with all of its file system.
    if (errno != EACCES || syncfs(fd) != 0) {
      failOn("cannot flush ", path);
    }
    return;
  }
  const int result = fsync(directory);
  const int error = errno;
  close(directory);
  // A file system that cannot flush a directory says so with EINVAL.
  if (result != 0 && error != EINVAL) {
    errno = error;
    failOn("cannot flush ", path);
  }
}

// Gives the open file the owner and mode of `old`, as far as the system lets it. Only a privileged
// process can give a file away; the others write as its owner anyway. And some
// file systems refuse modes: the file was made with no more rights than the old one has.
void adopt(int fd, const struct stat& old) {
  struct stat now;
  if (fstat(fd, &now) == 0 && (now.st_uid != old.st_uid || now.st_gid != old.st_gid)) {
    static_cast<void>(fchown(fd, old.st_uid, old.st_gid) == 0);
  }
  if (fstat(fd, &now) == 0 && now.st_mode != old.st_mode) {
    static_cast<void>(fchmod(fd, old.st_mode & 07777) == 0);
  }
}

// The name under which the file at `path` is kept aside next. A later one has a higher number: the
// first stays, and when all are taken, the second makes room.
std::string nextAside(const std::string& path, const std::string& state) {
  constexpr int MOST_KEPT = 9;
  const auto name = [&](int number) { return path + "." + state + "-" + std::to_string(number); };
  struct stat status;
  int last = MOST_KEPT;
  while (last > 0 && !find(name(last), status)) {
    --last;
  }
  if (last < MOST_KEPT) {
    return name(last + 1);
  }
  int gap = 2;
  while (gap < MOST_KEPT && find(name(gap), status)) {
    ++gap;
  }
  for (gap = gap == MOST_KEPT ? 2 : gap; gap < MOST_KEPT; ++gap) {
    if (std::rename(name(gap + 1).c_str(), name(gap).c_str()) != 0) {
      failOn("cannot keep ", name(gap + 1));
    }
  }
  return name(MOST_KEPT);
}

}  // namespace

FileReplacement::FileReplacement(const std::string& name, bool alone)
    : target(followLinks(name)), temp(target + ".tmp") {
  struct stat old;
  const bool replaces = find(target, old);
  if (replaces && !S_ISREG(old.st_mode)) {
    throw eternity::exception(target + " is no regular file");
  }
  if (alone) {
    unlink(temp.c_str());
  }
  // A mode that is right from the start need not be set; with another owner it would let others in.
  const bool same = replaces && old.st_uid == geteuid() && old.st_gid == getegid();
  const mode_t mode = !replaces ? 0666 : same ? old.st_mode & 0777 : 0600;
  for (unsigned int n = 1; fd < 0; ++n) {
    temp = alone ? temp : target + ".tmp-" + std::to_string(n);
    fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd < 0 && (alone || errno != EEXIST)) {
      failOn("cannot open ", temp);
    }
  }
}

FileReplacement::~FileReplacement() {
  close(fd);
  if (!renamed) {
    unlink(temp.c_str());
  }
}

std::string FileReplacement::commit(const char* keepAs) {
  CTRL_ASSERT(!renamed);
  struct stat old;
  const bool replaces = find(target, old);
  if (replaces) {
    adopt(fd, old);
  }
  if (fsync(fd) != 0) {
    failOn("cannot flush ", temp);
  }
  std::string kept;
  bool linked = false;
  if (replaces && keepAs != nullptr) {
    kept = nextAside(target, keepAs);
    // A second name leaves the file in its place meanwhile. Not every file system has it.
    linked = link(target.c_str(), kept.c_str()) == 0;
    if (!linked && std::rename(target.c_str(), kept.c_str()) != 0) {
      failOn("cannot keep ", target);
    }
  }
  if (std::rename(temp.c_str(), target.c_str()) != 0) {
    const int error = errno;
    if (linked) {
      unlink(kept.c_str());
    } else if (!kept.empty()) {
      static_cast<void>(std::rename(kept.c_str(), target.c_str()) == 0);
    }
    errno = error;
    failOn("cannot replace ", target);
  }
  renamed = true;
  flushDirectory(directoryOf(target), fd);
  return kept;
}

FileLock::~FileLock() {
  giveBack();
}

void FileLock::giveBack() {
  if (fd >= 0) {
    close(fd);
  }
  fd = -1;
}

// True when this object has locked the file that `path` names now.
bool FileLock::holds(const std::string& path) const {
  struct stat locked, named;
  return fd >= 0 && owner == getpid() && fstat(fd, &locked) == 0 &&
         stat(path.c_str(), &named) == 0 && locked.st_dev == named.st_dev &&
         locked.st_ino == named.st_ino;
}

bool FileLock::take(const std::string& name) {
  const std::string path = followLinks(name) + ".lock";
  if (holds(path)) {
    return true;
  }
  giveBack();
  const int low =
      open(path.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
  if (low < 0) {
    return false;
  }
  // It stays open: it must not take the place of a standard stream that is opened later.
  fd = fcntl(low, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(low);
  owner = getpid();
  if (fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0) {
    return true;
  }
  const int error = errno;
  giveBack();
  if (error == EWOULDBLOCK) {
    throw eternity::exception("another process keeps " + name);
  }
  return false;
}

std::string keepAside(const std::string& name, const char* state) {
  const std::string path = followLinks(name);
  struct stat status;
  if (!find(path, status) || !S_ISREG(status.st_mode)) {
    return {};
  }
  std::string kept = nextAside(path, state);
  if (std::rename(path.c_str(), kept.c_str()) != 0) {
    failOn("cannot keep ", path);
  }
  return kept;
}
