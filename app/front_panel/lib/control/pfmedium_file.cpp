#include "pfmedium_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "debug.h"

static_assert(sizeof(NorArray::bytes) == 16384, "the size of a store file");

bool PfFileMedium::open(const char* path, bool durable) {
  close();
  name = path;
  isDurable = durable;
  message[0] = '\0';
  const StreamGuard streams;
  fd = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    return refuse(std::strerror(errno));
  }
  if (prepare()) {
    return true;
  }
  ::close(fd);
  fd = -1;
  return false;
}

// Locks the open file and reads it. One that holds nothing is filled first.
bool PfFileMedium::prepare() {
  struct stat info;
  if (fstat(fd, &info) != 0) {
    return refuse(std::strerror(errno));
  }
  if (!S_ISREG(info.st_mode)) {
    return refuse("it is not a regular file");
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    return refuse(errno == EWOULDBLOCK ? "another process has it open" : std::strerror(errno));
  }
  // Only now: the process that held the lock may have filled the file just before.
  if (fstat(fd, &info) != 0) {
    return refuse(std::strerror(errno));
  }
  if (info.st_size == 0) {
    return fill();
  }
  if (info.st_size != static_cast<off_t>(FLASH_AREA_SIZE)) {
    char reason[96];
    std::snprintf(reason, sizeof reason, "it has %lld bytes, and a store file has %u",
                  static_cast<long long>(info.st_size), FLASH_AREA_SIZE);
    return refuse(reason);
  }
  return load();
}

// Gives an empty file its size at once and then its content: a process killed in between leaves an
// area that is dirty and holds nothing, which the store erases.
bool PfFileMedium::fill() {
  content = NorArray();
  int code = ftruncate(fd, static_cast<off_t>(FLASH_AREA_SIZE)) == 0 ? 0 : errno;
  if (code == 0) {
    code = writeBytes(0, FLASH_AREA_SIZE);
  }
  if (code == 0 && isDurable) {
    code = syncNewFile();
  }
  if (code == 0) {
    return true;
  }
  // Half a store is none: the next start shall find the file as empty as this one did.
  if (ftruncate(fd, 0) != 0) {
    std::fprintf(stderr, "%s cannot be emptied again: %s\n", name.c_str(), std::strerror(errno));
  }
  return refuse(std::strerror(code));
}

// Brings the file and its name in the directory to the disk; 0 or the number of the error. Some
// file systems keep a name without a sync of its directory, and refuse one.
int PfFileMedium::syncNewFile() {
  const std::string::size_type slash = name.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : name.substr(0, slash + 1);
  const int dir = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir < 0) {
    // A directory that may be written and not read is flushed with all of its file system.
    return errno == EACCES && syncfs(fd) == 0 ? 0 : errno;
  }
  const int code = fsync(fd) == 0 && (fsync(dir) == 0 || errno == EINVAL) ? 0 : errno;
  ::close(dir);
  return code;
}

bool PfFileMedium::load() {
  for (unsigned int at = 0; at < FLASH_AREA_SIZE;) {
    const ssize_t got = pread(fd, content.bytes + at, FLASH_AREA_SIZE - at, static_cast<off_t>(at));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return refuse(got == 0 ? "it became shorter while it was read" : std::strerror(errno));
    }
    at += static_cast<unsigned int>(got);
  }
  unsynced = true;  // the process before this one may have been killed before the disk had it all
  return true;
}

bool PfFileMedium::refuse(const char* reason) {
  std::snprintf(message, sizeof message, "%s cannot hold the preset store: %s", name.c_str(),
                reason);
  return false;
}

void PfFileMedium::close() {
  if (fd >= 0) {
    if (pfMedium() == this) {
      pfUseMedium(nullptr);
    }
    if (isDurable) {
      sync();
    }
    ::close(fd);
    fd = -1;
  }
  len = 0;
  unsynced = rewrite = false;
}

void PfFileMedium::init() {
  CTRL_ASSERT(isOpen());
}

void PfFileMedium::read(unsigned int from, unsigned char* buf, unsigned int size) {
  content.read(from, buf, size);
}

bool PfFileMedium::isErased(unsigned int id) {
  return content.isErased(id);
}

void PfFileMedium::startProgram(unsigned int at, unsigned short value) {
  CTRL_ASSERT(isOpen() && len == 0);
  // A word that has been programmed before is a mark on a record or on a block. Nothing relies on
  // the marks in a block whose own word is still erased.
  const unsigned int blkWord = at - at % FLASH_PARM_BLK_SIZE;
  barrier = isDurable && content.word(at) != 0xFFFF && content.word(blkWord) != 0xFFFF;
  addr = at;
  len = 2;
  word = value;
  poll();
}

void PfFileMedium::startErase(unsigned int id) {
  CTRL_ASSERT(isOpen() && len == 0 && id < TOTAL_FLASH_BLKS);
  barrier = isDurable;
  addr = id * FLASH_PARM_BLK_SIZE;
  len = FLASH_PARM_BLK_SIZE;
  poll();
}

// Takes the operation in flight as far as it goes. Repeating it after a failure does no harm.
bool PfFileMedium::poll() {
  if (len == 0) {
    return true;
  }
  if (barrier && !sync()) {
    return false;
  }
  barrier = false;
  if (len == 2) {
    content.program(addr, word);
  } else {
    content.erase(addr / FLASH_PARM_BLK_SIZE);
  }
  // An erase cut off in here has set the bytes up to some address: its block word is among them.
  if (!writeOut(addr, len)) {
    return false;
  }
  len = 0;
  return true;
}

void PfFileMedium::reset() {
  if (isDurable) {
    sync();
  }
}

// Waits until the disk has everything that is written.
bool PfFileMedium::sync() {
  if (rewrite && !writeOut(0, FLASH_AREA_SIZE)) {
    return false;
  }
  if (unsynced && fdatasync(fd) != 0) {
    // The system may have dropped what it could not write, and would not say so a second time.
    rewrite = true;
    return failed("waiting for the disk", errno);
  }
  unsynced = rewrite = false;
  message[0] = '\0';
  return true;
}

// Writes `size` bytes of the content at `from` to the file; 0 or the number of the error.
int PfFileMedium::writeBytes(unsigned int from, unsigned int size) {
  while (size > 0) {
    const ssize_t put = pwrite(fd, content.bytes + from, size, static_cast<off_t>(from));
    if (put < 0 && errno == EINTR) {
      continue;
    }
    if (put <= 0) {
      return put == 0 ? ENOSPC : errno;
    }
    unsynced = true;
    from += static_cast<unsigned int>(put);
    size -= static_cast<unsigned int>(put);
  }
  return 0;
}

// As writeBytes, for a store that runs: false after the report of an error.
bool PfFileMedium::writeOut(unsigned int from, unsigned int size) {
  if (const int code = writeBytes(from, size)) {
    return failed("writing", code);
  }
  if (!rewrite) {
    message[0] = '\0';
  }
  return true;
}

// Reports the start of a trouble, not its every repetition. Always false.
bool PfFileMedium::failed(const char* what, int code) {
  const bool first = message[0] == '\0';
  std::snprintf(message, sizeof message, "%s: %s failed: %s; it is tried again", name.c_str(), what,
                std::strerror(code));
  if (first) {
    std::fprintf(stderr, "%s\n", message);
  }
  return false;
}
