// The start-up scan over hand-made media, and factory images: what each one comes up as.
#include "fatal.h"
#include "random.h"
#include "store_rig.h"

namespace {

constexpr unsigned int END0 = FLASH_PARM_BLK_SIZE;
constexpr unsigned int END1 = 2 * FLASH_PARM_BLK_SIZE;

std::string bytes(unsigned int size) {
  return std::string(size, 'p');
}

// An empty valid block to put records into.
Image block(unsigned int blkid = 0) {
  return Image(blkid * FLASH_PARM_BLK_SIZE).word(0x7FFE).word(0);
}
Image block0(unsigned int blkid = 0) {
  return Image(blkid * FLASH_PARM_BLK_SIZE).word(0x7FFF);
}

// A block filled by one live record of type 1 in entry 0 up to `left` bytes before its end.
Image filled(unsigned int left) {
  return block().record(0x2001, 0, bytes(END0 - 4 - 6 - left));
}
Content fill(unsigned int left) {
  return {{0, {1, bytes(END0 - 4 - 6 - left)}}};
}

struct Found {
  const char* what;
  Image image;
  Content content;
  blkState_t state[2];
  unsigned int flashAddrEnd;
  bool forceCopy = false;
};

class Scan : public testing::Test {
 protected:
  void expect(const Found& f) {
    SCOPED_TRACE(f.what);
    rig.restartOn(f.image);
    EXPECT_EQ(rig.content(), f.content);
    EXPECT_EQ(presetStore.blkState[0], f.state[0]);
    EXPECT_EQ(presetStore.blkState[1], f.state[1]);
    EXPECT_EQ(presetStore.flashAddrEnd, f.flashAddrEnd);
    EXPECT_EQ(presetStore.forceCopy, f.forceCopy);
    keepsWhatItFound();
  }

  // What the scan found is still there after the store's own work, a write and a restart.
  void keepsWhatItFound() {
    ASSERT_EQ(rig.write(0x1FFF, "n"),
              presetStore.user[0].serv[0].size > 8100 ? ERR_WRITE_FAILED : ERR_OK);
    const Content before = rig.content();
    ASSERT_TRUE(rig.drain());
    rig.restart();
    Content after = rig.content();
    for (auto& [id, preset] : after) {
      // A conversion keeps 13 bits of a type.
      if (before.count(id) == 1 && preset.type == (before.at(id).type & 0x1FFF)) {
        preset.type = before.at(id).type;
      }
    }
    EXPECT_EQ(after, before);
  }

  // A block that reads valid is invalidated before its erase starts.
  void expectGivenUp(unsigned int blkid) {
    rig.pass();
    EXPECT_EQ(rig.part.lastOperation().addr, blkid * FLASH_PARM_BLK_SIZE);
    EXPECT_EQ(rig.part.lastOperation().word, 0xEFFF);
    rig.pass();
    EXPECT_TRUE(rig.part.lastOperation().erase);
  }

  StoreRig rig;
};

TEST_F(Scan, SoundMedia) {
  const Content abc = {{2, {5, "ABC"}}};
  Image example = Image(END0).word(0x7FFE).word(0);
  example.word(0x2005).word(2).word(3).word(0x4142).word(0x43FF);
  const Found cases[] = {
      {"two erased blocks", Image(), {}, {BLK_ERASED, BLK_ERASED}, 8192},
      {"an empty block", block(), {}, {BLK_ALLOC, BLK_ERASED}, 4},
      {"one record of odd size in block 1", example, abc, {BLK_ERASED, BLK_ALLOC}, 8206},
      {"leftovers in the other block",
       Image(example).seek(100).word(0),
       abc,
       {BLK_DEALLOC, BLK_ALLOC},
       8206},
      {"a log up to the block's end", filled(0), fill(0), {BLK_ALLOC, BLK_ERASED}, 8192},
      {"4 bytes left", filled(4), fill(4), {BLK_ALLOC, BLK_ERASED}, 8188},
      {"4 bytes left, the first of them dirty",
       filled(4).word(0x2001),
       fill(4),
       {BLK_ALLOC, BLK_ERASED},
       8192},
      {"a stray last word", filled(4).seek(8190).word(0), fill(4), {BLK_ALLOC, BLK_ERASED}, 8188},
      {"a stray word in the tail",
       block().record(0x2005, 2, "ABC").seek(400).word(0xFFFE),
       abc,
       {BLK_ALLOC, BLK_ERASED},
       8192},
      {"deleted records of any id and size are stepped over",
       block().record(0x0005, 2, "old").record(0x0006, 9999, "").record(0x2005, 2, "ABC"),
       abc,
       {BLK_ALLOC, BLK_ERASED},
       30},
      {"the later of two live records wins",
       block().record(0x2005, 2, "old").record(0x2009, 2, "newer"),
       {{2, {9, "newer"}}},
       {BLK_ALLOC, BLK_ERASED},
       26,
       true},
      {"a record that was never confirmed",
       block().record(0x2005, 2, "ABC").record(0x6006, 3, "half"),
       abc,
       {BLK_ALLOC, BLK_ERASED},
       8192},
      {"one that was just started",
       block().record(0x2005, 2, "ABC").word(0x7FFF),
       abc,
       {BLK_ALLOC, BLK_ERASED},
       8192},
      {"version 0, types of 13 and 15 bits",
       block0().record0(0, 7, "gone").record0(0x1234, 7, "ABC").record0(0x6005, 299, "z"),
       {{7, {0x1234, "ABC"}}, {299, {0x6005, "z"}}},
       {BLK_ALLOC, BLK_ERASED},
       36,
       true},
      {"version 0 without a record", block0(1), {}, {BLK_ERASED, BLK_ALLOC}, 8194, true},
      {"the largest payload of version 0",
       block0().record0(5, 0, bytes(8182)),
       {{0, {5, bytes(8182)}}},
       {BLK_ALLOC, BLK_ERASED},
       8192,
       true},
  };
  for (const Found& f : cases) {
    expect(f);
  }
  EXPECT_EQ(example.bytes[END0 + 13], 0xFF);
}

TEST_F(Scan, TheRamCopyHoldsBothPayloadsOfAnId) {
  rig.restartOn(block().record(0x2005, 2, "old").record(0x2009, 2, "newer"));
  EXPECT_EQ(presetStore.ramCopyEnd, 8U);
  // Dead bytes never stand in the way of a payload that the block has room for.
  rig.restartOn(block().record(0x2005, 2, bytes(4000)).record(0x2005, 2, bytes(4100)));
  for (const char fill : {'a', 'b', 'c'}) {
    ASSERT_EQ(rig.write(5, std::string(8182, fill)), ERR_OK);
    rig.pass();  // its record is in flight, so the next payload comes to stand beside it
  }
  rig.drain();
  EXPECT_EQ(rig.read(5), std::string(8182, 'c'));
}

TEST_F(Scan, BlocksThatAreNotValid) {
  for (const unsigned int word : {0xFFFEU, 0x6FFEU, 0x6FFFU, 0x7FFDU, 0x3FFEU, 0x0000U}) {
    expect({"no valid block word",
            Image(0).word(word).word(0).record(0x2005, 2, "ABC"),
            {},
            {BLK_DEALLOC, BLK_ERASED},
            8192});
  }
  expect({"not valid under another version",
          Image(0).word(0x7FFE).word(1).record(0x2005, 2, "ABC"),
          {},
          {BLK_DEALLOC, BLK_ERASED},
          8192});
  expect({"a copy that was not finished",
          block(0).record(0x2005, 2, "ABC").seek(END0 + 4).record(0x2005, 2, "ABC"),
          {{2, {5, "ABC"}}},
          {BLK_ALLOC, BLK_DEALLOC},
          14});
}

TEST_F(Scan, ACorruptLogIsGivenUpAsAWhole) {
  const Image sound = block(1).record(0x2005, 2, "ABC");
  const Image sound0 = block0(1).record0(0x0005, 2, "ABC");
  const struct {
    const char* what;
    Image image;
  } cases[] = {
      {"head word, bit 15 set", Image(sound).word(0x8005)},
      {"head word 0 1 0", Image(sound).word(0x4005)},
      {"head word 1 1 1 with a type", Image(sound).word(0xE005)},
      {"an almost erased head word", Image(sound).word(0xFFFE)},
      {"an id of 300", Image(sound).record(0x2001, 300, "x")},
      {"no payload", Image(sound).record(0x2001, 3, "")},
      {"a payload past the end", Image(sound).word(0x2001).word(3).word(8173)},
      {"a deleted payload past the end", Image(sound).word(0x0001).word(3).word(0xFFFE)},
      {"version 0, bit 15 set", Image(sound0).word(0x8005)},
      {"version 0, an id of 300", Image(sound0).record0(5, 300, "x")},
      {"version 0, a large size", Image(sound0).word(5).word(3).word(1).word(0)},
      {"version 0, the largest size", Image(sound0).word(5).word(3).word(0xFFFF).word(0xFFFF)},
      {"version 0, a header past the end",
       Image(END0).word(0x7FFF).record0(0, 0, bytes(8192 - 2 - 8 - 6)).word(5).word(3).word(0)},
  };
  for (const auto& c : cases) {
    expect({c.what, c.image, {}, {BLK_ERASED, BLK_DEALLOC}, 8192});
    rig.restartOn(c.image);
    expectGivenUp(1);
  }
}

TEST_F(Scan, OfTwoValidBlocksOneIsKept) {
  const Content a = {{1, {1, "a"}}}, b = {{1, {1, "b"}}};
  const auto in = [](Image image, unsigned int blkid, const char* data, bool isCopy) {
    image.seek(blkid * FLASH_PARM_BLK_SIZE).word(0x7FFE).word(0);
    return image.record(isCopy ? 0x2001U : 1U, 1, data).record(0x2001, isCopy ? 2U : 1U, data);
  };
  const auto corrupt = [](Image image, unsigned int blkid) {
    image.seek(blkid * FLASH_PARM_BLK_SIZE).word(0x7FFE).word(0);
    return image.record(0x2001, 300, "x");
  };
  const Content copy = {{1, {1, "c"}}, {2, {1, "c"}}};
  for (const unsigned int blkid : {0U, 1U}) {
    const blkState_t zero = blkid == 0 ? BLK_ALLOC : BLK_DEALLOC;
    const blkState_t one = blkid == 1 ? BLK_ALLOC : BLK_DEALLOC;
    const unsigned int at = blkid * FLASH_PARM_BLK_SIZE;
    const Image old = in(Image(), 1 - blkid, "o", false);
    expect({"a finished copy before a used log",
            in(old, blkid, "c", true),
            copy,
            {zero, one},
            at + 20});
    expect({"version 1 before version 0",
            in(block0(1 - blkid).record0(1, 1, "o"), blkid, "l", false),
            {{1, {1, "l"}}},
            {zero, one},
            at + 20});
    expect({"a sound log before a corrupt one",
            in(corrupt(Image(), 1 - blkid), blkid, "l", false),
            {{1, {1, "l"}}},
            {zero, one},
            at + 20});
    expect({"version 0 before a corrupt log",
            corrupt(block0(blkid).record0(1, 1, "a"), 1 - blkid),
            a,
            {zero, one},
            at + 12,
            true});
    rig.restartOn(in(old, blkid, "c", true));
    expectGivenUp(1 - blkid);
  }
  expect(
      {"two corrupt logs", corrupt(corrupt(Image(), 0), 1), {}, {BLK_DEALLOC, BLK_DEALLOC}, 8192});
}

// An erase of the old block, torn by a power cut, has turned the bit back that invalidated it, and
// some bits of its records with it.
TEST_F(Scan, ABlockThatIsPartlyErasedIsNotPreferred) {
  Random random(5);
  for (int run = 0; run < 500; ++run) {
    const unsigned int old = random.below(2), at = old * FLASH_PARM_BLK_SIZE;
    Image image = block(old).record(0x2001, 1, "first").record(0x2002, 2, "second");
    image.record(0x2003, 3, "old");
    image.seek(FLASH_PARM_BLK_SIZE - at).word(0x7FFE).word(0);
    image.record(0x2001, 1, "first").record(0x2002, 2, "second").record(0x2003, 3, "new");
    rig.restartOn(image);
    const Content intact = rig.content();  // of either
    for (unsigned int n = 1 + random.below(3); n > 0; --n) {
      const unsigned int byte = random.below(10);  // of a record's 12, the id left out
      image.bytes[at + 4 + 12 * random.below(2) + (byte < 2 ? byte : byte + 2)] |=
          static_cast<unsigned char>(1U << random.below(8));
    }
    rig.restartOn(image);
    Content found = rig.content();
    EXPECT_TRUE(found[3].bytes == "new" || found[3].bytes == "old");
    found[3] = intact.at(3);
    ASSERT_EQ(found, intact);
  }
}

// Whatever a medium holds, the store comes up, comes to rest, and keeps what it shows.
TEST_F(Scan, NoMediumStopsTheProcess) {
  Random random(11);
  const Image starts[] = {
      block().record(0x2001, 1, "one").record(0x0002, 2, "two!").record(0x2003, 3, "three"),
      block0(1).record0(1, 1, "one").record0(0, 2, "two!").record0(3, 3, "three")};
  for (int run = 0; run < 3000; ++run) {
    SCOPED_TRACE(run);
    Image image = starts[run % 2];
    for (unsigned int n = 1 + random.below(3); n > 0; --n) {
      const unsigned int at =
          random.oneIn(4) ? random.below(END1) : END0 * (run % 2) + random.below(48);
      image.bytes[at] = static_cast<unsigned char>(
          random.oneIn(2) ? random.word() : image.bytes[at] ^ (1U << random.below(8)));
    }
    rig.restartOn(image);
    keepsWhatItFound();
    ASSERT_FALSE(HasFailure());
  }
}

class Factory : public Scan {
 public:
  // A factory image record by record.
  Factory& add(unsigned int type, unsigned int size, const std::string& payload) {
    for (const unsigned int n : {type, size}) {
      image += static_cast<char>(n >> 8);
      image += static_cast<char>(n & 0xFF);
    }
    image += payload;
    return *this;
  }
  int install() {
    return PresetMgr::setFactory(&image[0], static_cast<unsigned int>(image.size()));
  }

  static std::string read(unsigned short type) {
    PresetMgr handle;
    char buf[64];
    unsigned int len = sizeof buf;
    return handle.openFirstFactory(type) == ERR_OK && handle.read(buf, len) == ERR_OK
               ? std::string(buf, len)
               : "nothing";
  }

  std::string image;
};

TEST_F(Factory, ServesASoundImageForReading) {
  EXPECT_EQ(add(5, 3, "abc?").add(0x1FFF, 1, "z?").add(5, 2, "de").install(), 0);
  EXPECT_EQ(read(5), "abc");
  EXPECT_EQ(read(0x1FFF), "z");
  PresetMgr handle;
  ASSERT_EQ(handle.openFirstFactory(0xE005), ERR_OK);
  EXPECT_EQ(handle.write("x", 1), ERR_NOT_OPEN);
  EXPECT_EQ(handle.remove(), ERR_NOT_OPEN);
  EXPECT_EQ(handle.openNext(), ERR_OK);
  unsigned int len = 9;
  char buf[9];
  EXPECT_EQ(handle.read(buf, len), ERR_OK);
  EXPECT_EQ(std::string(buf, len), "de");
  // The image is replaced under an open handle.
  EXPECT_EQ(install(), 0);
  EXPECT_EQ(handle.read(buf, len), ERR_NOT_OPEN);
  EXPECT_EQ(handle.close(), ERR_OK);
  EXPECT_EQ(handle.openNext(), ERR_NOT_FOUND);
  // A format leaves it alone.
  PresetMgr::format();
  EXPECT_EQ(read(5), "abc");
  EXPECT_EQ(PresetMgr::setFactory(nullptr, 100), 0);
  EXPECT_EQ(read(5), "nothing");
}

TEST_F(Factory, FillsAtMostTheTable) {
  for (unsigned int i = 0; i < NUM_PRESETS; ++i) {
    add(i, 2, "ab");
  }
  add(300, 0, "");  // would be bad if it were looked at
  EXPECT_EQ(install(), 0);
  EXPECT_EQ(read(299), "ab");
  EXPECT_EQ(read(300), "nothing");
}

TEST_F(Factory, ABadImageIsGivenUpAsAWhole) {
  const struct {
    unsigned int type, size;
    const char* payload;
  } cases[] = {{0x2000, 2, "ab"}, {1, 0, ""}, {1, 3, "ab"}, {1, 3, "abc"}, {1, 0xFFFF, "abcd"}};
  for (const auto& c : cases) {
    image.clear();
    EXPECT_EQ(add(5, 2, "ab").install(), 0);
    EXPECT_EQ(add(c.type, c.size, c.payload).install(), 1);
    EXPECT_EQ(read(5), "nothing");
  }
  image.clear();
  add(5, 2, "ab").image += "\1\2\3";  // less than a header is left over
  EXPECT_EQ(install(), 0);
  EXPECT_EQ(read(5), "ab");
}

}  // namespace
