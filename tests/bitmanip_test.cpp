// The bit transfer against a model that moves one bit at a time.
#include "bitmanip.h"

#include <array>
#include <random>

#include "fatal.h"

namespace {

constexpr unsigned int BUF_BYTES = 12;
constexpr unsigned int CURSOR_BYTE = 3;

using Bytes = std::array<unsigned char, BUF_BYTES>;

// A stream over a buffer with room in front of and behind everything a transfer may touch.
struct Stream {
  Bytes bytes;
  unsigned int byte = CURSOR_BYTE;
  unsigned int bit = BYTE_MSBIT;

  int xfer(unsigned int room, unsigned int& val, unsigned int valSize, bool dir) {
    void* p = &bytes.at(byte);
    const int moved = bitBufferXfer(&p, room, bit, val, valSize, dir);
    byte = static_cast<unsigned int>(static_cast<unsigned char*>(p) - bytes.data());
    return moved;
  }
  void modelStep(unsigned int& val, unsigned int valBit, bool dir) {
    const unsigned int weight = 1U << bit;
    if (dir && bit == BYTE_MSBIT) {
      bytes.at(byte) = 0;
    }
    if (dir && ((val >> valBit) & 1U) != 0) {
      bytes.at(byte) = static_cast<unsigned char>(bytes.at(byte) | weight);
    }
    if (!dir && (bytes.at(byte) & weight) != 0) {
      val |= 1U << valBit;
    }
    byte += bit == 0 ? 1 : 0;
    bit = bit == 0 ? BYTE_MSBIT : bit - 1;
  }
  int modelXfer(unsigned int& val, unsigned int valSize, bool dir) {
    const unsigned int from = byte;
    val = dir ? val : 0;
    for (unsigned int left = valSize; left > 0; --left) {
      modelStep(val, left - 1, dir);
    }
    return static_cast<int>(byte - from);
  }
  bool operator==(const Stream& o) const {
    return bytes == o.bytes && byte == o.byte && bit == o.bit;
  }
};

TEST(BitBufferXfer, MatchesOneBitAtATimeAtEveryPositionAndWidth) {
  std::mt19937 random(41);
  for (unsigned int run = 0; run < 20 * 8 * 33 * 2; ++run) {
    const bool dir = run % 2 != 0;
    const unsigned int valSize = run / 2 % 33;
    Stream real;
    real.bit = run / 66 % 8;
    for (unsigned char& b : real.bytes) {
      b = static_cast<unsigned char>(random());
    }
    Stream model = real;
    const Stream before = real;
    const unsigned int start = static_cast<unsigned int>(random());
    unsigned int val = start;
    unsigned int modelVal = start;
    if (valSize > 0) {
      ASSERT_EQ(real.xfer(valSize - 1, val, valSize, dir), -1);
      ASSERT_TRUE(real == before && val == start) << "no room, yet something changed";
    }
    const unsigned int room = run % 3 == 0 ? 0xFFFFFFFFU : valSize;
    const int moved = real.xfer(room, val, valSize, dir);
    ASSERT_EQ(moved, model.modelXfer(modelVal, valSize, dir));
    ASSERT_TRUE(real == model) << "bit " << before.bit << " width " << valSize << " dir " << dir;
    ASSERT_EQ(val, modelVal);
  }
}

TEST(BitBufferXferDeathTest, BrokenCursorsAreFatal) {
  unsigned int val = 0;
  unsigned int bit = 7;
  unsigned char byte[4] = {};
  void* p = byte;
  void* none = nullptr;
  EXPECT_FATAL(bitBufferXfer(nullptr, 32, bit, val, 0, true), "buf != nullptr");
  EXPECT_FATAL(bitBufferXfer(&none, 32, bit, val, 0, true), "*buf != nullptr");
  EXPECT_FATAL(bitBufferXfer(&p, 64, bit, val, 33, true), "valSize <= UNSIGNED_BITS");
  bit = 8;
  EXPECT_FATAL(bitBufferXfer(&p, 32, bit, val, 1, false), "startBit <= BYTE_MSBIT");
}

TEST(CalcNumBits, CountsUpToTheHighestSetBitAndMasksMatch) {
  EXPECT_EQ(calcNumBits(0), 0U);
  EXPECT_EQ(calcBitMask(0), 0U);
  EXPECT_EQ(calcBitMask(32), 0xFFFFFFFFU);
  EXPECT_EQ(BYTE_MASK, 0xFFU);
  for (unsigned int bits = 1; bits <= UNSIGNED_BITS; ++bits) {
    const unsigned int top = 1U << (bits - 1);
    EXPECT_EQ(calcNumBits(top), bits);
    EXPECT_EQ(calcNumBits(calcBitMask(bits)), bits);
    EXPECT_EQ(calcNumBits(top | 1U), bits);
  }
}

}  // namespace
