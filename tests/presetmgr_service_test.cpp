// The write-behind service and its queues: what reaches the medium, in which order, and when.
#include <algorithm>
#include <list>

#include "fatal.h"
#include "pfmedium.h"
#include "random.h"
#include "store_rig.h"

namespace {

// One operation on the medium: an erase of a block, or a word at an address.
struct Op {
  bool erase;
  unsigned int addr;
  unsigned int word;
  bool operator==(const Op& o) const {
    return erase == o.erase && addr == o.addr && word == o.word;
  }
};

void PrintTo(const Op& op, std::ostream* out) {
  *out << (op.erase ? "erase " : "word ") << op.addr << ": " << std::hex << op.word << std::dec;
}

Op word(unsigned int addr, unsigned int value) {
  return {false, addr, value};
}

Op erase(unsigned int blkid) {
  return {true, blkid * FLASH_PARM_BLK_SIZE, 0xFFFF};
}

class Service : public testing::Test {
 protected:
  Service() { Timer::sysTime = 5000; }

  unsigned long long operations() const {
    return rig.part.counters().words + rig.part.counters().erases;
  }

  // Passes until the store is idle, or `most` of them; the operation of each.
  std::vector<Op> run(unsigned int most = 100000, bool forceWrite = true) {
    std::vector<Op> ops;
    for (unsigned int i = 0; i < most; ++i) {
      const unsigned long long before = operations();
      const bool idle = rig.pass(forceWrite);
      if (operations() != before) {
        const PfSimMedium::Operation& op = rig.part.lastOperation();
        ops.push_back({op.erase, op.addr, op.word});
      }
      if (idle) {
        break;
      }
    }
    return ops;
  }

  // A live block 0 that holds nothing.
  void startEmpty() { rig.restartOn(Image(0).word(0x7FFE).word(0)); }

  StoreRig rig;
};

TEST_F(Service, RecordsAreProgrammedWordByWord) {
  rig.restart();
  rig.write(5, "abcde");
  EXPECT_EQ(run(), (std::vector<Op>{word(4, 0x6005), word(6, 0), word(8, 5), word(10, 0x6162),
                                    word(12, 0x6364), word(14, 0x65FF), word(4, 0x3FFF), word(2, 0),
                                    word(0, 0xFFFE), word(0, 0x7FFE)}));
  rig.write(6, "xy");
  EXPECT_EQ(run(), (std::vector<Op>{word(16, 0x6006), word(18, 1), word(20, 2), word(22, 0x7879),
                                    word(16, 0x3FFF)}));
  // A rewrite deletes the older record once the newer one is confirmed; a removal deletes at once.
  rig.write(5, "z");
  rig.remove(6);
  EXPECT_EQ(run(), (std::vector<Op>{word(16, 0x1FFF), word(24, 0x6005), word(26, 0), word(28, 1),
                                    word(30, 0x7AFF), word(24, 0x3FFF), word(4, 0x1FFF)}));
  EXPECT_EQ(rig.medium(0, 34),
            "7F FE 00 00 00 05 00 00 00 05 61 62 63 64 65 FF 00 06 00 01 00 02 78 79 20 05 00 00 "
            "00 01 7A FF FF FF");
}

TEST_F(Service, AFullBlockIsCopiedThenInvalidatedThenErased) {
  startEmpty();
  rig.write(1, std::string(8000, 'a'));
  rig.write(2, std::string(156, 'b'));  // 4 + 8006 + 162 leaves 20 bytes
  rig.drain();
  rig.write(2, "new");  // there is room for the first of the batch, not for both
  rig.write(3, "a third");
  const std::vector<Op> ops = run();
  EXPECT_EQ(ops.front(), word(8196, 0x6001));
  EXPECT_EQ(std::vector<Op>(ops.end() - 5, ops.end()),
            (std::vector<Op>{word(8194, 0), word(8192, 0xFFFE), word(8192, 0x7FFE), word(0, 0xEFFF),
                             erase(0)}));
  EXPECT_EQ(ops.size(), 4003U + 1 + 6 + 8 + 5);
}

// A batch and a copy may fill their block to the last byte.
TEST_F(Service, TheLastByteOfABlockIsUsed) {
  startEmpty();
  rig.write(1, std::string(FLASH_PARM_BLK_SIZE - 4 - 6, 'a'));
  EXPECT_EQ(run().front(), word(4, 0x6001));
  EXPECT_EQ(presetStore.flashAddrEnd, 8192U);
  for (const unsigned int target : {1U, 0U}) {
    rig.write(1, std::string(FLASH_PARM_BLK_SIZE - 4 - 6, static_cast<char>('b' + target)));
    const std::vector<Op> ops = run();
    EXPECT_EQ(ops[ops.size() - 3], word(target * 8192, 0x7FFE));
    const Content before = rig.content();
    rig.restart();
    EXPECT_EQ(rig.content(), before);
  }
}

TEST_F(Service, FormatErasesBothBlocksAndProgramsNothing) {
  const Image starts[] = {Image(0).word(0x7FFE).word(0).record(0x2001, 0, "x"),
                          Image(0).word(0x7FFF).record0(1, 0, "to be converted")};
  for (const Image& start : starts) {
    for (const unsigned int passes : {0U, 3U}) {
      rig.restartOn(start);
      rig.write(2, "something to do");
      run(passes);
      PresetMgr::format();
      EXPECT_EQ(run(), (std::vector<Op>{erase(0), erase(1)}));
      EXPECT_TRUE(rig.pass());
    }
  }
}

// A removal in a copy waits until the old block is gone; a rewrite does not join it a second time.
TEST_F(Service, ACopyTakesEachEntryOnce) {
  rig.restartOn(Image(0).word(0x7FFF).record0(1, 0, "a").record0(2, 1, "b").record0(3, 2, "c"));
  run(6);  // the first record is in the target
  rig.remove(1);
  rig.write(4, "d");  // in the same entry
  rig.write(3, "C");
  const std::vector<Op> ops = run();
  EXPECT_EQ(std::vector<Op>(ops.begin() + 9, ops.end()),
            (std::vector<Op>{word(8194, 0), word(8192, 0xFFFE), word(8192, 0x7FFE), word(0, 0xEFFF),
                             erase(0), word(8196, 0x1FFF), word(8220, 0x6004), word(8222, 0),
                             word(8224, 1), word(8226, 0x64FF), word(8220, 0x3FFF)}));
  EXPECT_EQ(rig.medium(8204, 14), "20 02 00 01 00 01 62 FF 20 03 00 02 00 01");
}

TEST_F(Service, AMediumThatDoesNotFinishStopsNothingElse) {
  startEmpty();
  rig.part.setLatency(1000, 1000);
  rig.write(1, "x");
  EXPECT_EQ(run(900).size(), 1U);
  EXPECT_EQ(PresetMgr::flush(), 1);
  rig.write(2, "y");
  rig.write(1, "z");
  EXPECT_EQ(rig.read(1) + rig.read(2), "zy");
}

TEST(WithoutAMedium, TheStoreWorksInRAM) {
  pfUseMedium(nullptr);
  EXPECT_EQ(PresetMgr::flush(), 0);
  for (unsigned int i = 0; i < 40; ++i) {
    ASSERT_EQ(StoreRig::write(static_cast<unsigned short>(i % 3),
                              std::string(2000, static_cast<char>(i))),
              ERR_OK);
    while (PresetMgr::flush() != 0) {
    }
  }
  EXPECT_EQ(StoreRig::read(0), std::string(2000, 39));
  resetPresetStore();
  EXPECT_EQ(StoreRig::read(0), "");
}

// The queues against a list, at random.
TEST(Queues, KeepTheirOrder) {
  resetPresetStore();
  PresetMgr handle;
  Random random(3);
  std::list<unsigned int> write, del;
  const auto members = [](const list_t& list, unsigned int preset_t::*next,
                          unsigned int preset_t::*prev) {
    std::list<unsigned int> ids;
    unsigned int last = NUM_PRESETS;
    for (unsigned int id = list.head; id < NUM_PRESETS; id = presetStore.user[id].*next) {
      EXPECT_EQ(presetStore.user[id].*prev, last);
      ids.push_back(last = id);
    }
    EXPECT_EQ(list.tail, last);
    EXPECT_EQ(list.size, ids.size());
    return ids;
  };
  for (int i = 0; i < 20000; ++i) {
    const unsigned int id = random.oneIn(9) ? NUM_PRESETS - 1 : random.below(8);
    switch (random.below(4)) {
      case 0:
        insertWriteList(id);
        write.remove(id);
        write.push_back(id);
        break;
      case 1:
        removeWriteList(id);
        write.remove(id);
        break;
      case 2:
        insertDelList(id);
        if (std::find(del.begin(), del.end(), id) == del.end()) {
          del.push_back(id);
        }
        break;
      default:
        dequeueDelList();
        if (!del.empty()) {
          del.pop_front();
        }
    }
    ASSERT_EQ(members(presetStore.writeList, &preset_t::nextWrite, &preset_t::prevWrite), write);
    ASSERT_EQ(members(presetStore.delList, &preset_t::nextDel, &preset_t::prevDel), del);
  }
  EXPECT_FATAL(insertWriteList(NUM_PRESETS), "id < NUM_PRESETS");
  resetPresetStore();
}

TEST_F(Service, AVersion0BlockIsConvertedByServiceAlone) {
  rig.restartOn(Image(8192).word(0x7FFF).record0(0x1234, 7, "abc").record0(0, 9, "dead"));
  EXPECT_EQ(run(100, false),
            (std::vector<Op>{word(4, 0x7234), word(6, 7), word(8, 3), word(10, 0x6162),
                             word(12, 0x63FF), word(4, 0x3FFF), word(2, 0), word(0, 0xFFFE),
                             word(0, 0x7FFE), word(8192, 0xEFFF), erase(1)}));
  rig.restartOn(Image(0).word(0x7FFF));
  EXPECT_EQ(run(100, false), (std::vector<Op>{word(8194, 0), word(8192, 0xFFFE), word(8192, 0x7FFE),
                                              word(0, 0xEFFF), erase(0)}));
}

// Times in ticks after the first write; the batch starts at the first pass not before `starts`.
TEST_F(Service, WritesWaitForQuietAndNotTooLong) {
  struct {
    const char* what;
    std::vector<unsigned int> writes;
    unsigned int starts;
  } const cases[] = {
      {"20 s after a single write", {0}, 20000},
      {"20 s after the last of a few", {0, 15000, 30000}, 50000},
      {"60 s after the first of many", {0, 10000, 20000, 30000, 40000, 50000, 59999}, 60000},
  };
  for (const unsigned int epoch : {1000U, 0xFFFFF000U}) {  // also across the counter's wrap
    for (const auto& c : cases) {
      SCOPED_TRACE(c.what);
      Timer::sysTime = epoch;
      startEmpty();
      unsigned int written = 0;
      for (unsigned int now = 0; now < c.starts; ++now) {
        Timer::sysTime = epoch + now;
        if (written < c.writes.size() && c.writes[written] == now) {
          ASSERT_EQ(rig.write(1, std::to_string(written++)), ERR_OK);
        }
        ASSERT_TRUE(rig.pass(false)) << now;
      }
      Timer::sysTime = epoch + c.starts;
      EXPECT_FALSE(rig.pass(false));
      run(1000, false);
      EXPECT_FALSE(presetStore.absTimeoutStarted || presetStore.incTimeoutStarted);
    }
  }
}

TEST_F(Service, WhatMovesATimer) {
  startEmpty();
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
  EXPECT_FALSE(run(100000, false).empty());
  rig.write(1, "b");  // the same bytes
  EXPECT_FALSE(presetStore.incTimeoutStarted || presetStore.absTimeoutStarted);
  EXPECT_EQ(rig.read(1), "b");
}

}  // namespace
