// The write-behind service and its queues: what reaches the medium, in which order, and when.

#include <cstring>

#include "fatal.h"
#include "store_rig.h"

namespace {

using testing::EndsWith;

class Service : public testing::Test {
 protected:
  Service() { Timer::sysTime = 5000; }

  // Passes until the store is idle, or `most` of them. The operations they started, in order, each
  // as " address=word" or " erase block".
  std::string run(unsigned int most = 100000, bool forceWrite = true) {
    std::ostringstream ops;
    ops << std::uppercase;
    rig.part.clearCounters();
    bool isIdle = false;
    for (unsigned long long before = 0; most > 0 && !isIdle; --most) {
      isIdle = rig.pass(forceWrite);
      const unsigned long long after = rig.part.counters().words + rig.part.counters().erases;
      const PfSimMedium::Operation& op = rig.part.lastOperation();
      if (after != before && op.erase) {
        ops << " erase " << getBlkId(op.addr);
      } else if (after != before) {
        ops << ' ' << std::dec << op.addr << '=' << std::hex << op.word;
      }
      before = after;
    }
    return ops.str();
  }

  StoreRig rig;
};

TEST_F(Service, RecordsAreProgrammedWordByWord) {
  rig.restart();
  rig.write(5, "abcde");
  EXPECT_EQ(run(), " 4=6005 6=0 8=5 10=6162 12=6364 14=65FF 4=3FFF 2=0 0=FFFE 0=7FFE");
  rig.write(6, "xy");
  EXPECT_EQ(run(), " 16=6006 18=1 20=2 22=7879 16=3FFF");
  // A rewrite deletes the older record once the newer one is confirmed; a removal deletes at once.
  rig.write(5, "z");
  rig.remove(6);
  EXPECT_EQ(run(), " 16=1FFF 24=6005 26=0 28=1 30=7AFF 24=3FFF 4=1FFF");
  const NorArray medium = Image("7FFE 0 dead:5,0,abcde dead:6,1,xy live:5,0,z");
  EXPECT_EQ(std::memcmp(rig.part.array().bytes, medium.bytes, sizeof medium.bytes), 0);
}

// A batch and a copy may fill their block to the last byte.
TEST_F(Service, TheLastByteOfABlockIsUsed) {
  rig.restartOn(Image("7FFE 0"));
  rig.write(1, std::string(8182, 'a'));
  EXPECT_THAT(run(), EndsWith(" 8190=6161 4=3FFF"));
  rig.write(1, std::string(8182, 'b'));
  EXPECT_THAT(run(), EndsWith(" 16382=6262 8196=3FFF 8194=0 8192=FFFE 8192=7FFE 0=EFFF erase 0"));
}

TEST_F(Service, FormatErasesBothBlocksAndOrdinarilyProgramsNothing) {
  for (const char* const start : {"7FFE 0 live:1,0,x", "7FFF live0:1,0,converted"}) {
    rig.restartOn(Image(start));
    rig.write(2, "something to do");
    run(3);
    PresetMgr::format();
    EXPECT_EQ(run(), " erase 0 erase 1");
  }
  rig.restartOn(Image("7FFE 0 live:1,300,bad @8192 7FFE 0 live:1,300,bad"));
  PresetMgr::format();
  EXPECT_EQ(run(), " 0=EFFF 8192=EFFF erase 0 erase 1");
}

// Two live records of an id cost nothing until a deletion of the later one would bring the earlier
// one back.
TEST_F(Service, ASupersededRecordIsLeftBehindWhenItMatters) {
  rig.restartOn(Image("7FFE 0 live:5,2,old live:6,1,x live:5,2,new"));
  rig.remove(6);
  EXPECT_EQ(run(), " 14=1FFF");
  rig.write(5, "z");
  EXPECT_EQ(run(), " 32=6005 34=2 36=1 38=7AFF 32=3FFF 22=1FFF");
  rig.remove(5);
  EXPECT_EQ(run(), " 8194=0 8192=FFFE 8192=7FFE 0=EFFF erase 0");
}

// A removal in a copy waits until the old block is gone, and so does what would come out of order.
TEST_F(Service, ACopyTakesEachEntryOnceByRisingId) {
  rig.restartOn(Image("7FFF live0:1,0,a live0:2,1,b live0:3,2,c"));
  EXPECT_EQ(run(6), " 8196=6001 8198=0 8200=1 8202=61FF 8196=3FFF 8204=6002");
  rig.remove(1);
  rig.write(4, "d");  // in the same entry
  rig.write(5, "e");
  rig.write(3, "C");
  EXPECT_EQ(run(),
            " 8206=1 8208=1 8210=62FF 8204=3FFF 8212=6003 8214=2 8216=1 8218=43FF 8212=3FFF"
            " 8220=6005 8222=3 8224=1 8226=65FF 8220=3FFF"
            " 8194=0 8192=FFFE 8192=7FFE 0=EFFF erase 0"
            " 8196=1FFF 8228=6004 8230=0 8232=1 8234=64FF 8228=3FFF");
}

TEST_F(Service, AVersion0BlockIsConvertedByServiceAlone) {
  rig.restartOn(Image("@8192 7FFF live0:4660,7,abc dead0:1,9,dead"));
  EXPECT_EQ(run(100, false),
            " 4=7234 6=7 8=3 10=6162 12=63FF 4=3FFF 2=0 0=FFFE 0=7FFE 8192=EFFF erase 1");
  rig.restartOn(Image("7FFF"));
  EXPECT_EQ(run(100, false), " 8194=0 8192=FFFE 8192=7FFE 0=EFFF erase 0");
}

// Times in ticks after the first write; the batch starts at the first pass not before `starts`.
TEST_F(Service, WritesWaitForQuietAndNotTooLong) {
  const struct {
    std::vector<unsigned int> writes;
    unsigned int starts;
  } cases[] = {
      {{0, 15000, 30000}, 50000},                              // 20 s after the last of a few
      {{0, 10000, 20000, 30000, 40000, 50000, 59999}, 60000},  // 60 s after the first of many
  };
  for (const unsigned int epoch : {1000U, 0xFFFFF000U}) {  // also across the counter's wrap
    for (const auto& c : cases) {
      rig.restartOn(Image("7FFE 0"));
      unsigned int written = 0;
      for (unsigned int now = 0; now < c.starts; ++now) {
        Timer::sysTime = epoch + now;
        if (written < c.writes.size() && c.writes[written] == now) {
          ASSERT_EQ(rig.write(1, std::to_string(written++)), ERR_OK);
        }
        ASSERT_TRUE(rig.pass(false)) << now;
      }
      Timer::sysTime = epoch + c.starts;
      EXPECT_NE(run(1000, false), "");
    }
  }
}

TEST_F(Service, WhatMovesATimer) {
  rig.restartOn(Image("7FFE 0"));
  rig.write(1, "a");
  run(3);  // two words of the record are under way
  Timer::sysTime += 1000;
  rig.write(1, "b");  // waits in the second slot
  rig.write(2, "a");
  run(8, false);
  EXPECT_TRUE(presetStore.incTimeoutStarted && presetStore.absTimeoutStarted);
  Timer::sysTime += TIMEOUT_INC_WRITE - 1;
  EXPECT_TRUE(rig.pass(false));
  Timer::sysTime += 1;
  EXPECT_NE(run(1000, false), "");
  rig.write(1, "b");  // the same bytes
  EXPECT_FALSE(presetStore.incTimeoutStarted || presetStore.absTimeoutStarted);
}

TEST(WithoutAMedium, TheStoreWorksInRAM) {
  EXPECT_EQ(PresetMgr::flush(), 0);
  for (char fill = 'a'; fill < 'z'; ++fill) {
    const unsigned short type = fill % 2 == 0 ? 1 : 2;
    ASSERT_EQ(StoreRig::write(type, std::string(2000, fill)), ERR_OK);
    while (PresetMgr::flush() != 0) {
    }
    ASSERT_EQ(StoreRig::read(type), std::string(2000, fill));
  }
}

TEST(QueueDeathTest, AnEntryThatThereIsNot) {
  EXPECT_FATAL(insertWriteList(NUM_PRESETS), "id < NUM_PRESETS");
}

}  // namespace
