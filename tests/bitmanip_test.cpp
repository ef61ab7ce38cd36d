// The bit transfer: what it moves, where it goes on, and what it refuses.
#include "bitmanip.h"

#include "fatal.h"
#include "random.h"

namespace {

// The layout of the bits is that of the preset images, which are compared with a writer of bits.
TEST(BitBufferXfer, ComesBackFromEveryPositionAtEveryWidthAndNeedsItsRoom) {
  Random random(41);
  for (unsigned int run = 0; run < 20 * 8 * 33; ++run) {
    const unsigned int width = run % 33, from = run / 33 % 8, room = run % 2 == 0 ? width : ~0U;
    SCOPED_TRACE(testing::Message() << "bit " << from << " width " << width);
    unsigned char bytes[6] = {};
    const unsigned int val = random.word() & calcBitMask(width), end = 7 - from + width;
    for (const bool dir : {true, false}) {
      unsigned int moved = dir ? val : random.word(), bit = from;
      const unsigned int before = moved;
      void* p = bytes;
      ASSERT_EQ(width == 0 ? -1 : bitBufferXfer(&p, width - 1, bit, moved, width, dir), -1);
      ASSERT_TRUE(moved == before && bit == from && p == bytes) << "no room, yet it moved";
      ASSERT_EQ(bitBufferXfer(&p, room, bit, moved, width, dir), static_cast<int>(end / 8));
      ASSERT_TRUE(p == bytes + end / 8 && bit == 7 - end % 8);
      ASSERT_EQ(moved, val);
    }
  }
}

TEST(BitBufferXferDeathTest, BrokenCursorsAreFatal) {
  unsigned int val = 0;
  unsigned int bit = 8;
  void* p = &val;
  void* none = nullptr;
  EXPECT_FATAL(bitBufferXfer(nullptr, 32, bit, val, 0, true), "buf != nullptr");
  EXPECT_FATAL(bitBufferXfer(&none, 32, bit, val, 0, true), "*buf != nullptr");
  EXPECT_FATAL(bitBufferXfer(&p, 32, bit, val, 1, false), "startBit <= BYTE_MSBIT");
  bit = 7;
  EXPECT_FATAL(bitBufferXfer(&p, 64, bit, val, 33, true), "valSize <= UNSIGNED_BITS");
}

TEST(CalcNumBits, CountsUpToTheHighestSetBitAndMasksMatch) {
  for (unsigned int bits = 0; bits <= UNSIGNED_BITS; ++bits) {
    const unsigned int mask = static_cast<unsigned int>((std::uint64_t{1} << bits) - 1);
    EXPECT_EQ(calcBitMask(bits), mask);
    EXPECT_EQ(calcNumBits(mask), bits);
    EXPECT_EQ(calcNumBits(mask - mask / 2), bits) << "the highest bit alone";
  }
}

}  // namespace
