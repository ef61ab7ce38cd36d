// The parameter flash operations and the media behind them.
#include "pflash.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "fatal.h"
#include "iofault.h"
#include "pfmedium_file.h"
#include "pfmedium_sim.h"
#include "random.h"
#include "tempdir.h"

// The writes to the file of the medium.
struct Writes {
  // A call that is not interrupted moves half of `size`.
  bool interrupted(size_t& size) {
    size = split ? (size + 1) / 2 : size;
    errno = EINTR;
    return split && ++count % 3 == 0;
  }

  int count = 0;
  bool split = false;           // they come back short, or interrupted, and so do reads
  int sinceSync = 0;            // those that no sync has covered yet
  bool marksAreSynced = false;  // marks and erases have to find everything synced
  NorArray disk;                // what has been written
} writes;

// The system calls of the file medium that iofault does not have yet.
extern "C" {

ssize_t pwrite(int fd, const void* buf, size_t size, off_t at) {
  const unsigned int addr = static_cast<unsigned int>(at);
  if (writes.interrupted(size)) {
    return -1;
  }
  if (writes.marksAreSynced && (size > 2 || writes.disk.word(addr) != 0xFFFF)) {
    EXPECT_EQ(writes.sinceSync, 0) << "at " << addr;
  }
  ++writes.sinceSync;
  std::memcpy(writes.disk.bytes + addr, buf, size);
  IOFAULT_PASS(pwrite, -1, fd, buf, size, at);
}

int fdatasync(int) {
  const bool fails = iofault::due("fdatasync");
  writes.sinceSync = fails ? writes.sinceSync : 0;
  return fails ? -1 : 0;
}

int fstat(int fd, struct stat* info) noexcept {
  IOFAULT_PASS(fstat, -1, fd, info);
}

int flock(int fd, int operation) noexcept {
  IOFAULT_PASS(flock, -1, fd, operation);
}

int ftruncate(int fd, off_t size) noexcept {
  IOFAULT_PASS(ftruncate, -1, fd, size);
}

ssize_t pread(int fd, void* buf, size_t size, off_t at) {
  if (writes.interrupted(size)) {
    return -1;
  }
  IOFAULT_PASS(pread, -1, fd, buf, size, at);
}

}  // extern "C"

namespace {

unsigned short readWord(unsigned int addr) {
  unsigned char buf[2];
  EXPECT_EQ(pfReadBlk(addr, buf, 2), addr + 2);
  return static_cast<unsigned short>(buf[0] << 8 | buf[1]);
}

// A program whose store runs on a simulated part.
class Simulated : public testing::Test {
 protected:
  Simulated() {
    pfUseMedium(&part);
    pfInit();
  }

  static void program(unsigned int addr, unsigned short word) {
    pfWriteWordNoWait(addr, word);
    pfIsWriteComplete();
  }
  void restart() {
    part.powerUp();
    pfInit();
  }
  PfSimMedium part;
};

TEST(WithoutAMedium, EverythingReadsErasedAndNothingIsKept) {
  pfInit();
  EXPECT_EQ(pfGetFlashOffset(), 16384U);
  EXPECT_EQ(pfWriteWordNoWait(16382, 0x1234), 16384U);
  EXPECT_TRUE(pfIsWriteComplete() && pfIsBlkErased(1) && readWord(16382) == 0xFFFF);
  EXPECT_FATAL(pfBlkEraseNoWait(2), "id < 2");
  pfReset();
  PfSimMedium late;
  EXPECT_FATAL(pfUseMedium(&late), "!started");
  pfUseMedium(nullptr);
}

TEST_F(Simulated, ABrokenRuleStopsTheProcess) {
  program(0, 0x2005);
  EXPECT_FATAL(program(1, 0), "addr % 2 == 0");
  EXPECT_FATAL(program(16384, 0), "addr < FLASH_AREA_SIZE");
  EXPECT_FATAL(program(0, 0x3FFF), "canProgram");  // confirms what is confirmed
  EXPECT_FATAL(program(0, 0xEFFF), "canProgram");
  EXPECT_FATAL(readWord(16384), "FLASH_AREA_SIZE");
  EXPECT_FATAL(readWord(1), "addr % 2 == 0");
  EXPECT_FATAL(pfReadBlk(0, nullptr, 1), "len % 2 == 0");
  EXPECT_FATAL(pfReadBlk(2, nullptr, FLASH_AREA_SIZE), "FLASH_AREA_SIZE - addr");
  EXPECT_FATAL(pfIsBlkErased(2), "id < TOTAL_FLASH_BLKS");
  PfSimMedium second;
  EXPECT_FATAL(pfUseMedium(&second), "chosen == nullptr");
  part.beginPass();
  pfWriteWordNoWait(2, 0);
  EXPECT_FATAL(pfWriteWordNoWait(4, 0), "!writeOp && !eraseOp");
  EXPECT_FATAL(pfBlkEraseNoWait(1), "!writeOp && !eraseOp");
  EXPECT_FATAL(part.startProgram(4, 0), "!inFlight");
  EXPECT_FATAL(part.load(NorArray()), "!inFlight");
  EXPECT_FATAL(readWord(0), "!inFlight");
  EXPECT_FATAL(pfIsBlkErased(0), "!inFlight");
  EXPECT_TRUE(pfIsWriteComplete());
  EXPECT_FATAL(program(4, 0), "startedInPass == 0");
  part.beginPass();
  pfBlkEraseNoWait(1);
  EXPECT_FATAL(pfWriteWordNoWait(4, 0), "!writeOp && !eraseOp");
  EXPECT_FATAL(pfBlkEraseNoWait(0), "!writeOp && !eraseOp");
}

// What a cut inside an operation leaves lies bit by bit between before and after, and over the
// seeds each changing bit is seen on both sides.
TEST_F(Simulated, AnOperationIsTornBitByBitAndNothingHappensUntilTheRestart) {
  Random random(7);
  NorArray before;
  for (unsigned char& b : before.bytes) {
    b = static_cast<unsigned char>(random.word());
  }
  unsigned int kept = 0, set = 0, cleared = 0;
  const NorArray& left = part.array();
  for (unsigned int seed = 0; seed < 64; ++seed) {
    part.load(before);
    part.cutAt(1, PfSimMedium::CUT_INSIDE, seed);
    pfBlkEraseNoWait(1);
    part.startProgram(0, 0);
    part.startErase(0);
    ASSERT_FALSE(part.powered() || pfIsEraseComplete());
    ASSERT_TRUE(readWord(0) == 0xFFFF && pfIsBlkErased(0)) << "nothing can be read";
    for (unsigned int i = 0; i < sizeof before.bytes; ++i) {
      ASSERT_EQ(left.bytes[i] & (i < 8192 ? 0xFF : before.bytes[i]), before.bytes[i]);
    }
    set |= left.word(12000);
    kept |= left.word(12000) ^ 0xFFFF;
    restart();
    part.load(NorArray());
    part.cutAt(1, PfSimMedium::CUT_INSIDE, seed);
    program(4, 0x5A00);
    ASSERT_EQ(left.word(4) & 0x5A00, 0x5A00);
    cleared |= ~left.word(4) & 0xFFFF;
    restart();
  }
  EXPECT_EQ(set, 0xFFFFU);
  EXPECT_EQ(kept, before.word(12000) ^ 0xFFFFU);
  EXPECT_EQ(cleared, 0xA5FFU);
}

class InAFile : public testing::Test {
 protected:
  InAFile() { writes = Writes(); }

  void start(bool durable = false) {
    ASSERT_TRUE(file.open(PATH, durable)) << file.error();
    pfUseMedium(&file);
    pfInit();
  }

  static NorArray onDisk() {
    NorArray image;
    char* const bytes = reinterpret_cast<char*>(image.bytes);
    EXPECT_EQ(readWhole(PATH).copy(bytes, FLASH_AREA_SIZE + 1), sizeof image.bytes);
    return image;
  }

  // Starts operation `n` of a fixed sequence of words, marks and erases, and follows it in `model`.
  static void operation(unsigned int n, NorArray& model) {
    const unsigned int step = n % 40;
    const unsigned int block = n / 40 % 2;
    const unsigned int addr = block * FLASH_PARM_BLK_SIZE + step / 2 * 404;
    if (step == 39) {
      model.erase(1 - block);
      pfBlkEraseNoWait(1 - block);
    } else {
      const unsigned short word = step % 2 == 0 ? static_cast<unsigned short>(0x6000 + n) : 0x3FFF;
      model.program(addr, word);
      pfWriteWordNoWait(addr, word);
    }
  }
  static bool complete() { return pfIsWriteComplete() && pfIsEraseComplete(); }

  static constexpr const char* PATH = "presets.flash";
  const TempDir dir;
  PfFileMedium file;
};

TEST_F(InAFile, RefusesWhatIsNoStoreFileAndSaysWhy) {
  for (const unsigned int size : {16383U, 16385U}) {
    writeWhole(PATH, std::string(size, 'x'));
    EXPECT_FALSE(file.open(PATH, false));
    EXPECT_THAT(file.error(), testing::HasSubstr("it has " + std::to_string(size) + " bytes"));
  }
  EXPECT_FALSE(file.open("/dev/null", false));
  EXPECT_THAT(file.error(), testing::HasSubstr("not a regular file"));

  writeWhole(PATH, "");  // left by a process killed right after it had created the file
  start();
  EXPECT_TRUE(onDisk().isErased(0) && onDisk().isErased(1));
}

// An empty file and a whole one, with every system call of their opening failing once, or from
// then on.
TEST_F(InAFile, AnOpenThatFailsSaysWhyAndLeavesTheFile) {
  for (const std::string& before : {std::string(), std::string(FLASH_AREA_SIZE, '\xFF')}) {
    for (const bool forEver : {false, true}) {
      bool opened = false;
      for (int n = 1; !opened; ++n) {
        writeWhole(PATH, before);
        iofault::failFrom(n, forEver);
        opened = file.open(std::filesystem::absolute(PATH).c_str(), true);
        EXPECT_EQ(opened, iofault::faultsLeft());
        iofault::heal();
        EXPECT_THAT(file.error(), testing::HasSubstr(opened ? "" : "No space left"));
        EXPECT_TRUE(opened || forEver || readWhole(PATH) == before) << n;
      }
      file.close();
    }
  }
  // In a directory that may be written and not read.
  writeWhole(PATH, "");
  iofault::error = EACCES;
  iofault::failFrom(7, false);
  EXPECT_TRUE(file.open(PATH, true) && !iofault::faultsLeft()) << file.error();
  iofault::heal();
  file.close();
  EXPECT_FATAL(file.init(), "isOpen()");
  EXPECT_FATAL(file.startProgram(0, 0), "isOpen()");
  EXPECT_FATAL(file.startErase(0), "isOpen()");
}

// The process ends at every one of the system's writes, also half-way through an operation. What it
// leaves is what a part can be left in: a finished operation, or one with some of its bits changed.
TEST_F(InAFile, AKilledProcessLeavesWhatAPowerCutLeaves) {
  writes.split = true;
  for (int kill = 1; kill < 400; ++kill) {
    std::filesystem::remove(PATH);
    start();
    iofault::failFrom(kill, true);
    NorArray before, after;
    unsigned int n = 0;
    for (; complete() && n < 120; ++n) {
      before = after;
      operation(n, after);
    }
    iofault::heal();
    if (n == 120) {
      return;
    }
    const NorArray left = onDisk();
    for (unsigned int i = 0; i < sizeof left.bytes; ++i) {
      ASSERT_EQ((left.bytes[i] ^ before.bytes[i]) & ~(before.bytes[i] ^ after.bytes[i]), 0) << kill;
    }
    // Whatever the trouble was, the operation is completed once it is over.
    EXPECT_THAT(file.error(), testing::HasSubstr("No space left"));
    ASSERT_TRUE(complete());
    EXPECT_STREQ(file.error(), "");
    ASSERT_EQ(std::memcmp(onDisk().bytes, after.bytes, sizeof after.bytes), 0) << kill;
    file.close();
  }
  FAIL() << "the sequence has to end before its end";
}

TEST_F(InAFile, ADurableMediumOrdersTheDiskAndSurvivesItsErrors) {
  NorArray model;
  unsigned int n = 0;
  const auto run = [&](unsigned int end) {
    for (; n < end; ++n) {
      operation(n, model);
      ASSERT_TRUE(complete());
    }
  };
  start();
  run(51);
  file.close();
  EXPECT_EQ(pfMedium(), nullptr);
  writes.split = true;
  start(true);  // what the process before has left in the system's memory counts as well
  unsigned char found[FLASH_AREA_SIZE];
  pfReadBlk(0, found, sizeof found);
  EXPECT_EQ(std::memcmp(found, model.bytes, sizeof found), 0);
  EXPECT_EQ(pfIsBlkErased(1), model.isErased(1));
  writes.split = false;
  writes.marksAreSynced = true;
  run(201);
  writes.marksAreSynced = false;
  pfReset();
  EXPECT_EQ(writes.sinceSync, 0);

  run(203);
  iofault::failFrom(1, true);
  operation(n++, model);  // a mark, which has to wait
  EXPECT_THAT(file.error(), testing::HasSubstr("waiting for the disk failed: "));
  EXPECT_FALSE(complete()) << "what the disk did not confirm cannot be written anew either";
  iofault::heal();
  writeWhole(PATH, std::string(sizeof model.bytes, 'x'));  // all that was not confirmed is lost
  EXPECT_TRUE(complete());
  EXPECT_EQ(std::memcmp(onDisk().bytes, model.bytes, sizeof model.bytes), 0);
  EXPECT_STREQ(file.error(), "");
  // Nothing relies on marks in a block that is being filled.
  pfBlkEraseNoWait(0);
  for (const int word : {0x6005, 0x3FFF}) {
    ASSERT_TRUE(complete());
    pfWriteWordNoWait(4, static_cast<unsigned short>(word));
  }
  EXPECT_TRUE(complete());
  EXPECT_EQ(writes.sinceSync, 3);
  EXPECT_FATAL(file.startErase(2), "id < TOTAL_FLASH_BLKS");
  iofault::failFrom(1, true);
  pfWriteWordNoWait(6, 0);
  EXPECT_FALSE(complete());
  EXPECT_FATAL(file.startProgram(8, 0), "len == 0");
  EXPECT_FATAL(file.startErase(0), "len == 0");
  iofault::heal();
  file.close();
  EXPECT_TRUE(complete()) << "nothing is under way where there is no medium";
}

}  // namespace
