#include "filereplace.h"

#include <fcntl.h>
#include <persist.h>
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

// Closes the descriptor however the scope is left.
class Descriptor : public Noncopyable {
 public:
  Descriptor(const std::string& path, int flags, mode_t mode = 0)
      : fd(open(path.c_str(), flags | O_CLOEXEC, mode)) {
    if (fd < 0) {
      failOn("cannot open ", path);
    }
  }
  ~Descriptor() { close(fd); }

  const int fd;
};

// Flushes the directory `path`, in which `file` is open.
void flushDirectory(const std::string& path, const Descriptor& file) {
  const int directory = open(path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) {
    // A directory that may be written and not read is flushed with all of its file system.
    if (errno != EACCES || syncfs(file.fd) != 0) {
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

}  // namespace

FileReplacement::FileReplacement(const std::string& name)
    : target(followLinks(name)), temp(target + ".tmp") {
  struct stat old;
  const bool replaces = find(target, old);
  if (replaces && !S_ISREG(old.st_mode)) {
    throw eternity::exception(target + " is no regular file");
  }
  unlink(temp.c_str());
  // The old file may be closed to others: its owner and mode come with the commit.
  const Descriptor created(temp, O_WRONLY | O_CREAT | O_EXCL, replaces ? 0600 : 0666);
}

FileReplacement::~FileReplacement() {
  if (!renamed) {
    unlink(temp.c_str());
  }
}

void FileReplacement::commit() {
  CTRL_ASSERT(!renamed);
  const Descriptor file(temp, O_RDONLY);
  struct stat old;
  if (find(target, old)) {
    // Only a privileged process can give a file away; the others write as its owner anyway.
    static_cast<void>(fchown(file.fd, old.st_uid, old.st_gid) == 0);
    if (fchmod(file.fd, old.st_mode & 07777) != 0) {
      failOn("cannot set the mode of ", temp);
    }
  }
  if (fsync(file.fd) != 0) {
    failOn("cannot flush ", temp);
  }
  if (std::rename(temp.c_str(), target.c_str()) != 0) {
    failOn("cannot replace ", target);
  }
  renamed = true;
  flushDirectory(directoryOf(target), file);
}

std::string keepAside(const std::string& name) {
  constexpr int MOST_KEPT = 9;
  const std::string path = followLinks(name);
  struct stat status;
  if (!find(path, status) || !S_ISREG(status.st_mode)) {
    return {};
  }
  int number = 1;
  std::string kept;
  do {
    kept = path + ".damaged-" + std::to_string(number);
  } while (find(kept, status) && ++number <= MOST_KEPT);
  if (std::rename(path.c_str(), kept.c_str()) != 0) {
    failOn("cannot keep ", path);
  }
  return kept;
}
