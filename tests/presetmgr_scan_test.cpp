// The start-up scan over hand-made media, and factory images: what each one comes up as.
#include <gtest/gtest.h>

#include "random.h"
#include "store_rig.h"

namespace {

struct Found {
  std::string what;
  std::string image;
  std::string content;  // as Scan::shown writes it
  std::string state;    // of the two blocks: allocated, deallocated or erased
  unsigned int flashAddrEnd;
  bool forceCopy = false;
};

class Scan : public testing::Test {
 protected:
  // All presets as id:type:payload, a long payload as its size.
  static std::string shown() {
    std::string all;
    for (const auto& [id, preset] : StoreRig::content()) {
      const std::string& bytes = preset.bytes;
      all += (all.empty() ? "" : " ") + std::to_string(id) + ":" + std::to_string(preset.type) +
             ":" + (bytes.size() < 10 ? bytes : "*" + std::to_string(bytes.size()));
    }
    return all;
  }
  static char stateOf(unsigned int blkid) {
    const blkState_t state = presetStore.blkState[blkid];
    return state == BLK_ALLOC ? 'A' : state == BLK_DEALLOC ? 'D' : 'E';
  }

  // What the scan finds is still there after the store's own work, a write and a restart.
  void expect(const Found& f) {
    SCOPED_TRACE(f.what);
    rig.restartOn(Image(f.image));
    EXPECT_EQ(shown(), f.content);
    EXPECT_EQ((std::string{stateOf(0), stateOf(1)}), f.state);
    EXPECT_EQ(presetStore.flashAddrEnd, f.flashAddrEnd);
    EXPECT_EQ(presetStore.forceCopy, f.forceCopy);
    rig.write(0x1FFF, "n");
    const Content before = rig.lasting();
    ASSERT_TRUE(rig.drain());
    rig.restart();
    EXPECT_EQ(rig.content(), before);
  }

  // A block that reads valid is invalidated before its erase starts.
  void expectGivenUp(const std::string& image, unsigned int blkid) {
    rig.restartOn(Image(image));
    rig.pass();
    EXPECT_EQ(rig.part.lastOperation().addr, blkid * FLASH_PARM_BLK_SIZE);
    EXPECT_EQ(rig.part.lastOperation().word, 0xEFFF);
    rig.pass();
    EXPECT_TRUE(rig.part.lastOperation().erase);
  }

  StoreRig rig;
};

TEST_F(Scan, SoundMedia) {
  const std::string abc = "7FFE 0 live:5,2,ABC ", found = "2:5:ABC";
  const Found cases[] = {
      {"two erased blocks", "", "", "EE", 8192},
      {"odd size in block 1", "@8192 7FFE 0 2005 2 3 4142 43FF", found, "EA", 8206},
      {"leftovers in the other block", abc + "@9000 0", found, "AD", 14},
      {"4 bytes left", "7FFE 0 live:1,0,*8178", "0:1:*8178", "AE", 8188},
      {"of 4 bytes the first dirty", "7FFE 0 live:1,0,*8178 2001", "0:1:*8178", "AE", 8192},
      {"a stray last word", abc + "@8190 0", found, "AE", 14},
      {"a stray word in the tail", abc + "@400 FFFE", found, "AE", 8192},
      {"deleted records of any id", "7FFE 0 dead:5,2,old dead:6,9999, live:5,2,ABC", found, "AE",
       30},
      {"two live records", "7FFE 0 live:5,2,old live:9,2,newer", "2:9:newer", "AE", 26},
      {"never confirmed", abc + "open:6,3,half", found, "AE", 8192},
      {"just started", abc + "7FFF", found, "AE", 8192},
      {"a torn head word", abc + "E005", found, "AE", 8192},
      {"an almost erased one in the last place", "7FFE 0 live:1,0,*8174 @8186 FFFE", "0:1:*8174",
       "AE", 8192},
      {"version 0, types of 13 and 15 bits",
       "7FFF dead0:1,7,gone live0:4660,7,ABC live0:24581,299,z", "7:4660:ABC 299:24581:z", "AE", 36,
       true},
      {"version 0, the largest", "7FFF live0:1,0,*8182", "0:1:*8182", "AE", 8192, true},
      {"a copy that was not finished", abc + "@8196 live:5,2,ABC", found, "AD", 14},
      {"another version", "7FFE 1 live:5,2,ABC", "", "DE", 8192},
  };
  for (const Found& f : cases) {
    expect(f);
  }
  for (const std::string blkWord : {"FFFE", "6FFE", "6FFF", "7FFD", "3FFE", "0"}) {
    expect({blkWord, blkWord + " 0 live:5,2,ABC", "", "DE", 8192});
  }
}

// Dead bytes never stand in the way of a payload that the block has room for.
TEST_F(Scan, TheRamCopyHoldsBothPayloadsOfAnId) {
  rig.restartOn(Image("7FFE 0 live:5,2,*4000 live:7,1,seven live:6,0,six live:5,2,*4000"));
  for (const char fill : {'a', 'b', 'c'}) {
    ASSERT_EQ(rig.write(5, std::string(8160, fill)), ERR_OK);
    do {
      rig.pass();  // its record is in flight, so the next payload comes to stand beside it
    } while (presetStore.curOp != 2);
  }
  EXPECT_EQ(rig.read(7) + rig.read(6), "sevensix");
  rig.drain();
  EXPECT_EQ(rig.read(5), std::string(8160, 'c'));
}

TEST_F(Scan, ACorruptLogIsGivenUpAsAWhole) {
  const std::string logs[] = {
      "7FFE 0 live:5,2,ABC 8005",           // head word, bit 15 set
      "7FFE 0 live:5,2,ABC 4005",           // head word 0 1 0
      "7FFE 0 live:5,2,ABC E005 2",         // a torn one, with more behind it
      "7FFE 0 live:5,2,ABC E005 @16382 0",  // at the very end
      "7FFE 0 live:5,2,ABC live:1,300,x",   // an id of 300
      "7FFE 0 live:5,2,ABC live:1,3,",      // no payload
      "7FFE 0 live:5,2,ABC 2001 3 1FED",    // a payload past the end
      "7FFE 0 live:5,2,ABC 0001 3 FFFE",    // a deleted one
      "7FFF live0:5,2,ABC 8005",            // version 0, bit 15 set
      "7FFF live0:5,2,ABC E005",            // a torn head word
      "7FFF live0:5,2,ABC live0:1,300,x",   // an id of 300
      "7FFF live0:5,2,ABC 5 3 1 0",         // a large size
      "7FFF live0:5,2,ABC 5 3 FFFF FFFF",   // the largest size
      "7FFF dead0:1,0,*8176 5 3 0",         // a header past the end
  };
  for (const std::string& log : logs) {
    expect({log, "@8192 " + log, "", "ED", 8192});
    expectGivenUp("@8192 " + log, 1);
  }
}

TEST_F(Scan, OfTwoValidBlocksOneIsKept) {
  const std::string at[] = {" @0 ", " @8192 "};
  const std::string copy = "7FFE 0 live:1,1,c live:1,2,c", log = "7FFE 0 dead:1,1,l live:1,1,l";
  const std::string others = "7FFE 0 live:1,2,l live:2,1,l", bad = "7FFE 0 live:1,300,x",
                    ver0 = "7FFF live0:1,1,v";
  for (const unsigned int blk : {0U, 1U}) {
    const std::string here = at[blk], there = at[1 - blk], state = blk == 0 ? "AD" : "DA";
    const unsigned int start = blk * FLASH_PARM_BLK_SIZE;
    const Found cases[] = {
        {"a finished copy before a used log", copy + there + log, "1:1:c 2:1:c", state, start + 20},
        {"version 1 before version 0", log + there + ver0, "1:1:l", state, start + 20},
        {"records by rising id before others", copy + there + others, "1:1:c 2:1:c", state,
         start + 20},
        {"the copy to which a preset was added", copy + " live:3,3,a" + there + copy,
         "1:1:c 2:1:c 3:3:a", state, start + 28},
        {"a sound log before a corrupt one", log + there + bad, "1:1:l", state, start + 20},
        {"version 0 before a corrupt log", ver0 + there + bad, "1:1:v", state, start + 12, true},
    };
    for (Found f : cases) {
      f.image.insert(0, here);
      expect(f);
      expectGivenUp(f.image, 1 - blk);
    }
  }
  expect({"two corrupt logs", at[0] + bad + at[1] + bad, "", "DD", 8192});
}

// An erase of the old block, torn by a power cut, has turned the bit back that invalidated it, and
// some bits of its records with it. The new one has a rewrite that only turned bits to ones, too.
TEST_F(Scan, ABlockThatIsPartlyErasedIsNotPreferred) {
  Random random(5);
  for (int run = 0; run < 500; ++run) {
    const unsigned int old = random.below(2) * FLASH_PARM_BLK_SIZE;
    const std::string records = " 7FFE 0 live:1,1,first live:2,2,second live:3,3,thirds live:4,4,";
    const std::string copy = "@" + std::to_string(FLASH_PARM_BLK_SIZE - old) + records + "ccc";
    Image image("@" + std::to_string(old) + records + "aaa " + copy);
    for (unsigned int i = 0; i < 2 + random.below(2); ++i) {
      unsigned char* const record = image.bytes + old + 4 + 12 * i;
      for (unsigned char bit = 0; bit == 0;) {
        unsigned char& byte = record[random.oneIn(4) ? random.below(2) : 4 + random.below(8)];
        bit = static_cast<unsigned char>(~byte & 1U << random.below(8));
        byte |= bit;
      }
    }
    rig.restartOn(Image(copy));
    const Content newer = rig.content();
    rig.restartOn(image);
    ASSERT_EQ(rig.content(), newer) << run;
  }
}

class Factory : public Scan {
 public:
  // A record of an image.
  static std::string record(unsigned int type, unsigned int size, const std::string& payload) {
    std::string all;
    for (const unsigned int n : {type / 256, type % 256, size / 256, size % 256}) {
      all += static_cast<char>(n);
    }
    return all + payload;
  }
  int install(const std::string& bytes) {
    image = bytes;
    return PresetMgr::setFactory(&image[0], static_cast<unsigned int>(image.size()));
  }
  static std::string read(PresetMgr& handle) {
    char buf[64];
    unsigned int len = sizeof buf;
    return handle.read(buf, len) == ERR_OK ? std::string(buf, len) : "nothing";
  }
  static std::string read(unsigned short type) {
    PresetMgr handle;
    handle.openFirstFactory(type);
    return read(handle);
  }

  std::string image;
};

TEST_F(Factory, ServesASoundImageForReading) {
  EXPECT_EQ(install(record(5, 3, "abc?") + record(0x1FFF, 1, "z?") + record(5, 2, "de")), 0);
  EXPECT_EQ(read(0x1FFF), "z");
  PresetMgr handle;
  ASSERT_EQ(handle.openFirstFactory(0xE005), ERR_OK);
  EXPECT_EQ(read(handle), "abc");
  EXPECT_EQ(handle.write("x", 1), ERR_NOT_OPEN);
  EXPECT_EQ(handle.remove(), ERR_NOT_OPEN);
  EXPECT_EQ(handle.openNext(), ERR_OK);
  EXPECT_EQ(read(handle), "de");
  EXPECT_EQ(install(std::string(image)), 0);  // under the open handle
  EXPECT_EQ(read(handle), "nothing");
  EXPECT_EQ(handle.close(), ERR_OK);
  EXPECT_EQ(handle.openNext(), ERR_NOT_FOUND);
  PresetMgr::format();  // leaves it alone
  EXPECT_EQ(read(5), "abc");
  EXPECT_EQ(PresetMgr::setFactory(nullptr, 100) + PresetMgr::setFactory(&image[0], 0), 0);
  EXPECT_EQ(read(5), "nothing");
}

TEST_F(Factory, ABadImageIsGivenUpAsAWholeAndAFullTableEndsIt) {
  const std::string good = record(5, 2, "ab");
  for (const std::string& bad : {record(0x2000, 2, "ab"), record(1, 0, ""), record(1, 3, "ab"),
                                 record(1, 3, "abc"), record(1, 0xFFFF, "abcd")}) {
    EXPECT_EQ(install(good + bad), 1);
    EXPECT_EQ(read(5), "nothing");
  }
  EXPECT_EQ(install(good + "\1\2\3"), 0) << "less than a header is left over";
  std::string most;
  for (unsigned int i = 0; i < NUM_PRESETS; ++i) {
    most += record(5 + i, 2, "ab");
  }
  EXPECT_EQ(install(most + record(305, 0, "")), 0) << "would be bad if it were looked at";
  EXPECT_EQ(read(5) + read(304) + read(305), "ababnothing");
}

}  // namespace
