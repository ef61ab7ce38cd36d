// The parameter flash operations and the media behind them.
#include "pflash.h"

#include <cstring>
#include <random>

#include "fatal.h"
#include "pfmedium_sim.h"

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

  // Runs one word, or one erase, to its completion; the number of polls that it took.
  int program(unsigned int addr, unsigned short word) {
    EXPECT_EQ(pfWriteWordNoWait(addr, word), addr + 2);
    return finish(pfIsWriteComplete);
  }
  int erase(unsigned int id) {
    pfBlkEraseNoWait(id);
    return finish(pfIsEraseComplete);
  }
  void restart() {
    part.powerUp();
    pfInit();
  }

  PfSimMedium part;

 private:
  int finish(bool (*complete)()) {
    int polls = 1;
    while (!complete() && part.powered()) {
      ++polls;
    }
    return polls;
  }
};

TEST(WithoutAMedium, EverythingReadsErasedAndNothingIsKept) {
  pfUseMedium(nullptr);
  pfInit();
  EXPECT_EQ(pfGetFlashOffset(), 16384U);
  EXPECT_EQ(pfWriteWordNoWait(8190, 0x1234), 8192U);
  EXPECT_EQ(pfWriteWordNoWait(16382, 0x1234), 16384U);
  EXPECT_TRUE(pfIsWriteComplete());
  EXPECT_EQ(readWord(8190), 0xFFFF);
  pfBlkEraseNoWait(1);
  EXPECT_TRUE(pfIsEraseComplete());
  EXPECT_TRUE(pfIsBlkErased(0) && pfIsBlkErased(1));
  EXPECT_FATAL(pfBlkEraseNoWait(2), "id < 2");
  pfReset();
  PfSimMedium late;
  EXPECT_FATAL(pfUseMedium(&late), "!started");
  pfUseMedium(nullptr);
}

TEST_F(Simulated, ProgrammingClearsBitsAndAnEraseSetsOneBlock) {
  program(0, 0x6123);
  program(0, 0x3FFF);
  EXPECT_EQ(readWord(0), 0x2123);
  program(0, 0x1FFF);
  EXPECT_EQ(readWord(0), 0x0123);
  program(8192, 0x7FFE);
  program(8192, 0xEFFF);
  EXPECT_EQ(readWord(8192), 0x6FFE);
  EXPECT_EQ(part.array().bytes[8192], 0x6F);
  erase(0);
  EXPECT_TRUE(pfIsBlkErased(0));
  EXPECT_FALSE(pfIsBlkErased(1));
  EXPECT_EQ(part.counters().words, 5U);
  EXPECT_EQ(part.counters().erases, 1U);
  EXPECT_EQ(part.counters().reads, 3U);
}

TEST_F(Simulated, OperationsTakeTheirPolls) {
  part.setLatency(3, 10);
  EXPECT_EQ(program(2, 5), 4);
  EXPECT_EQ(erase(1), 11);
  EXPECT_TRUE(pfIsWriteComplete() && pfIsEraseComplete());
}

TEST_F(Simulated, ABrokenRuleStopsTheProcess) {
  program(0, 0x2005);
  EXPECT_FATAL(program(1, 0), "addr % 2 == 0");
  EXPECT_FATAL(program(16384, 0), "addr < FLASH_AREA_SIZE");
  EXPECT_FATAL(program(0, 0x2006), "canProgram");
  EXPECT_FATAL(program(0, 0x3FFF), "canProgram");  // confirms what is confirmed
  EXPECT_FATAL(program(0, 0xEFFF), "canProgram");
  EXPECT_FATAL(readWord(16384), "FLASH_AREA_SIZE");
  EXPECT_FATAL(
      {
        pfWriteWordNoWait(2, 0);
        pfBlkEraseNoWait(1);
      },
      "!writeOp && !eraseOp");
  EXPECT_FATAL(
      {
        part.beginPass();
        program(2, 0);
        program(4, 0);
      },
      "startedInPass == 0");
  PfSimMedium second;
  EXPECT_FATAL(pfUseMedium(&second), "chosen == nullptr");
}

TEST_F(Simulated, AfterThePowerCutNothingHappensUntilTheRestart) {
  part.cutAt(2, PfSimMedium::CUT_AFTER);
  program(0, 1);
  program(2, 2);
  EXPECT_FALSE(part.powered());
  EXPECT_FALSE(pfIsWriteComplete());
  EXPECT_EQ(readWord(0), 0xFFFF);
  part.startProgram(4, 3);
  part.startErase(0);
  restart();
  EXPECT_EQ(readWord(0), 1);
  EXPECT_EQ(readWord(2), 2);
  EXPECT_EQ(readWord(4), 0xFFFF);
  program(4, 4);
  EXPECT_EQ(readWord(4), 4);
}

// What a cut inside an operation leaves lies bit by bit between before and after, and over the
// seeds each changing bit is seen on both sides.
TEST_F(Simulated, AnOperationIsTornBitByBit) {
  std::mt19937 bits(7);
  NorArray before;
  for (unsigned char& b : before.bytes) {
    b = static_cast<unsigned char>(bits());
  }
  unsigned int kept = 0, set = 0, cleared = 0;
  for (unsigned int seed = 0; seed < 64; ++seed) {
    part.load(before);
    part.cutAt(1, PfSimMedium::CUT_INSIDE, seed);
    erase(1);
    ASSERT_FALSE(part.powered());
    ASSERT_TRUE(part.lastOperation().erase);
    ASSERT_EQ(part.lastOperation().before, before.word(8192));
    EXPECT_EQ(std::memcmp(part.array().bytes, before.bytes, 8192), 0);
    for (unsigned int i = 8192; i < sizeof before.bytes; ++i) {
      ASSERT_EQ(part.array().bytes[i] & before.bytes[i], before.bytes[i]);
    }
    const unsigned int added = part.array().word(12000) & ~before.word(12000);
    set |= added;
    kept |= ~before.word(12000) & ~added & 0xFFFF;
    restart();

    part.load(NorArray());
    part.cutAt(1, PfSimMedium::CUT_INSIDE, seed);
    program(4, 0x5A00);
    ASSERT_EQ(part.array().word(4) & 0x5A00, 0x5A00);
    cleared |= ~part.array().word(4) & 0xFFFF;
    restart();
  }
  EXPECT_EQ(set, ~before.word(12000) & 0xFFFFU);
  EXPECT_EQ(kept, ~before.word(12000) & 0xFFFFU);
  EXPECT_EQ(cleared, 0xA5FFU);
}

}  // namespace
