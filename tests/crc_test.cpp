// The CRC-16 against models of it: bit by bit, and byte by byte as its definition has it.
#include "crc.h"

#include <gtest/gtest.h>

#include <string>

#include "component_writer.h"
#include "random.h"

namespace {

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string randomBytes(std::size_t size, unsigned int seed) {
  Random random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(random.word());
  }
  return bytes;
}

// The definition: the table entry is what the register's high byte leaves behind.
unsigned int crcByBytes(unsigned int crc, const std::string& bytes) {
  for (const char byte : bytes) {
    const unsigned int entry = component::crcByBits(crc >> 8, std::string(2, '\0'));
    crc = ((crc << 8) ^ static_cast<unsigned char>(byte) ^ entry) & 0xFFFF;
  }
  return crc;
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
    EXPECT_EQ(crcByBytes(0xFFFF, each.bytes), each.crc);
  }
  EXPECT_EQ(calcCRC16(0x1234, nullptr, 0), 0x1234);
}

TEST(CalcCrc16, AgreesWithTheModelsAtEveryLengthAndAlignment) {
  const std::string bytes = randomBytes(700, 1);
  Random random(2);
  for (std::size_t length = 0; length <= 400; ++length) {
    const std::size_t from = random.below(300);
    const unsigned short start = static_cast<unsigned short>(random.word());
    const std::string part = bytes.substr(from, length);
    const unsigned int crc = calcCRC16(start, bytesOf(bytes) + from, length);
    ASSERT_EQ(crc, component::crcByBits(start, part)) << length << " bytes";
    ASSERT_EQ(crc, crcByBytes(start, part)) << length << " bytes";
  }
}

TEST(CalcCrc16, EverySplitGivesTheCrcOfTheWhole) {
  const std::string bytes = randomBytes(1000, 3);
  const unsigned int whole = component::crcByBits(0xFFFF, bytes);
  for (std::size_t split = 0; split <= bytes.size(); ++split) {
    const unsigned short first = calcCRC16(0xFFFF, bytesOf(bytes), split);
    ASSERT_EQ(calcCRC16(first, bytesOf(bytes) + split, bytes.size() - split), whole) << split;
  }
  // Pieces of one length each: short ones never reach the steps that long ones take.
  for (std::size_t piece = 1; piece < 200; ++piece) {
    unsigned short crc = 0xFFFF;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      crc = calcCRC16(crc, bytesOf(bytes) + at, std::min(piece, bytes.size() - at));
    }
    ASSERT_EQ(crc, whole) << piece;
  }
}

}  // namespace
