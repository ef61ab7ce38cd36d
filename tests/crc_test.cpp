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
  const struct {
    std::string bytes;
    unsigned int crc;
  } cases[] = {{"", 0xFFFF},
               {"123456789", 0xA69D},
               {std::string("123456789\0\0", 11), 0xE5CC},
               {std::string(110, '\0'), 0x6948},
               {std::string(114, '\0'), 0x1EA9}};
  for (const auto& each : cases) {
    EXPECT_EQ(calcCRC16(0xFFFF, bytesOf(each.bytes), each.bytes.size()), each.crc);
    EXPECT_EQ(component::crcByBits(0xFFFF, each.bytes), each.crc);
  }
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
