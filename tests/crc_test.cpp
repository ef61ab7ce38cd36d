// The CRC-16 against known results and against a model that goes bit by bit.
#include "crc.h"

#include <gtest/gtest.h>

#include "component_writer.h"
#include "random.h"

namespace {

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

TEST(CalcCrc16, KnownResults) {
  EXPECT_EQ(calcCRC16(0xFFFF, bytesOf("123456789"), 9), 0xA69D);
  EXPECT_EQ(calcCRC16(0xFFFF, bytesOf(std::string(110, '\0')), 110), 0x6948);
  EXPECT_EQ(calcCRC16(0x1234, nullptr, 0), 0x1234);
}

// In two pieces each: short ones never reach the steps that long ones take.
TEST(CalcCrc16, AgreesWithTheModelAtEveryLengthAlignmentAndSplit) {
  Random random(1);
  std::string bytes;
  while (bytes.size() < 700) {
    bytes += static_cast<char>(random.word());
  }
  for (unsigned int length = 0; length <= 400; ++length) {
    const unsigned int from = random.below(300);
    const unsigned short start = static_cast<unsigned short>(random.word());
    const unsigned char* const part = bytesOf(bytes) + from;
    const unsigned int crc = component::crcByBits(start, bytes.substr(from, length));
    for (unsigned int split = length % 7; split <= length; split += 7) {
      const unsigned short first = calcCRC16(start, part, split);
      ASSERT_EQ(calcCRC16(first, part + split, length - split), crc) << split << " of " << length;
    }
  }
}

}  // namespace
