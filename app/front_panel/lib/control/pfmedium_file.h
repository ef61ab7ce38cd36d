// A medium in a file: keeps the preset store of a Linux process that has no flash.
//
// The file holds the store's area, FLASH_AREA_SIZE bytes, as a NOR part would: words in the order
// in which they were programmed, each written through at once. So a process that is killed at any
// moment leaves what a power cut would leave. A durable medium extends that to a power cut of the
// whole machine: what a mark or an erase relies on is on the disk before it.
// One process at a time has the file open; it is locked. A write that fails is reported on standard
// error and repeated at every poll; until it succeeds the operation is not complete, so the store
// waits and keeps its data in RAM. The caller owns the medium and keeps it open while it is in use.
// One thread. Use of a medium that is not open and an odd or foreign address stop the process.
#pragma once

#include <string>

#include "pfmedium.h"

/// See above.
class PfFileMedium : public PfMedium {
 public:
  /// A medium without a file.
  PfFileMedium() = default;
  ~PfFileMedium() override { close(); }

  /// Opens and locks the file `path`. A missing or empty file becomes an erased area. `durable`
  /// false leaves the disk to the system; true waits for it, some milliseconds, in front of each
  /// mark and each erase and at the end of a flush; where that last wait fails, error() says so,
  /// and one more flush waits again. False when the file cannot be used; error() then says why, and
  /// the file has not been changed.
  bool open(const char* path, bool durable);

  /// Closes the file and gives up the lock.
  void close();

  /// True between a successful open and close.
  bool isOpen() const { return fd >= 0; }

  /// Why the last open or the operation in flight fails, as a sentence; empty when nothing does.
  const char* error() const { return message; }

  void init() override;
  void read(unsigned int addr, unsigned char* buf, unsigned int len) override;
  bool isErased(unsigned int id) override;
  void startProgram(unsigned int addr, unsigned short word) override;
  void startErase(unsigned int id) override;
  bool poll() override;
  void reset() override;

 private:
  bool prepare();
  bool fill();
  bool load();
  int syncNewFile();
  bool sync();
  int writeBytes(unsigned int from, unsigned int size);
  bool writeOut(unsigned int from, unsigned int size);
  bool refuse(const char* reason);
  bool failed(const char* what, int code);

  NorArray content;  // what the file holds, or will hold once a failed write has been repeated
  std::string name;
  int fd = -1;
  bool isDurable = false;
  bool unsynced = false;  // something written may not be on the disk yet
  bool rewrite = false;   // the disk has lost writes: all of it has to be written again
  bool barrier = false;   // the operation in flight waits for the disk
  unsigned int addr = 0;  // bytes of the operation in flight
  unsigned int len = 0;   // 0 when nothing is in flight
  unsigned short word = 0;
  char message[512] = "";
};
