// The bit transfer against a model that moves one bit at a time.
#include "bitmanip.h"

#include <array>

#include "fatal.h"
#include "random.h"

namespace {

// A stream that starts in byte FIRST, with room on both sides of all that a transfer may touch.
using Bytes = std::array<unsigned char, 12>;
constexpr unsigned int FIRST = 3;

// Moves the bits from bit number `at` of the buffer on; the number of the bit behind them.
unsigned int modelXfer(Bytes& bytes, unsigned int at, unsigned int& val, unsigned int valSize,
                       bool dir) {
  val = dir ? val : 0;
  for (unsigned int left = valSize; left > 0; --left, ++at) {
    const unsigned int weight = 0x80U >> at % 8;
    unsigned int byte = dir && at % 8 == 0 ? 0 : bytes.at(at / 8);
    if (dir) {
      byte |= (val >> (left - 1) & 1) * weight;
    } else {
      val |= ((byte & weight) != 0 ? 1U : 0U) << (left - 1);
    }
    bytes.at(at / 8) = static_cast<unsigned char>(byte);
  }
  return at;
}

TEST(BitBufferXfer, MatchesOneBitAtATimeAtEveryPositionAndWidth) {
  Random random(41);
  for (unsigned int run = 0; run < 20 * 8 * 33 * 2; ++run) {
    const bool dir = run % 2 != 0;
    const unsigned int valSize = run / 2 % 33;
    const unsigned int startBit = run / 66 % 8;
    SCOPED_TRACE(testing::Message() << "bit " << startBit << " width " << valSize << " " << dir);
    Bytes bytes;
    for (unsigned char& b : bytes) {
      b = static_cast<unsigned char>(random.word());
    }
    Bytes expected = bytes;
    unsigned int val = random.word();
    unsigned int expectedVal = val;
    unsigned int bit = startBit;
    void* p = &bytes[FIRST];
    ASSERT_EQ(valSize == 0 ? -1 : bitBufferXfer(&p, valSize - 1, bit, val, valSize, dir), -1);
    ASSERT_TRUE(bytes == expected && val == expectedVal && bit == startBit && p == &bytes[FIRST])
        << "no room, yet something changed";
    const unsigned int room = run % 3 == 0 ? 0xFFFFFFFFU : valSize;
    const int moved = bitBufferXfer(&p, room, bit, val, valSize, dir);
    const unsigned int end =
        modelXfer(expected, FIRST * 8 + 7 - startBit, expectedVal, valSize, dir);
    ASSERT_EQ(p, &bytes[end / 8]);
    ASSERT_EQ(moved, static_cast<int>(end / 8 - FIRST));
    ASSERT_EQ(bit, 7 - end % 8);
    ASSERT_EQ(bytes, expected);
    ASSERT_EQ(val, expectedVal);
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
