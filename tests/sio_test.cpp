// The console's formatter against a reference made of strings, and its input.
#include "sio.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include "random.h"

namespace {

template <class... Arguments>
std::string print(const std::string& format, Arguments... arguments) {
  testing::internal::CaptureStdout();
  sio_printf(0, format.c_str(), arguments...);
  return testing::internal::GetCapturedStdout();
}

TEST(SioPrintf, NumbersStringsAndPointers) {
  EXPECT_EQ(print("%5d|%05d|%5d|%d", 42, -42, -42, INT_MIN), "   42|-0042|-  42|-2147483648");
  EXPECT_EQ(print("%x|%#6x|%08x|%#o", 255U, 255U, 0xBEEFU, 0U), "FF|$   FF|0000BEEF|00");
  EXPECT_EQ(print("%5s|%05s|%1s|%2s|", "ab", "ab", "ab", static_cast<const char*>(nullptr)),
            "ab   |ab   |ab|  |");
  EXPECT_EQ(print("%3c%c", 65, 0x141), "AA");
  const std::string all(2 * sizeof(void*), 'F');
  EXPECT_EQ(print("%3p", reinterpret_cast<void*>(UINTPTR_MAX)), "$" + all);
}

// A number is a sign or a prefix, the filling and the digits.
TEST(SioPrintf, NumbersOfEveryWidthAndFillingAgreeWithTheReference) {
  Random random(1);
  for (int round = 0; round < 5000; ++round) {
    const bool zero = random.oneIn(2);
    const bool alternate = random.oneIn(2);
    const std::size_t width = random.oneIn(2) ? 1 + random.below(25) : 0;
    const std::string field = std::string("%") + (alternate ? "#" : "") + (zero ? "0" : "") +
                              (width == 0 ? "" : std::to_string(width));
    const unsigned int size = random.word() >> random.below(32);  // of every magnitude
    const unsigned int value = random.oneIn(2) ? size : 0U - size;
    const int number = static_cast<int>(value);
    const auto filled = [zero](const std::string& front, const std::string& digits,
                               std::size_t to) {
      const std::size_t used = front.size() + digits.size();
      return front + std::string(used < to ? to - used : 0, zero ? '0' : ' ') + digits + "|";
    };
    char octal[16], hex[16];
    std::snprintf(octal, sizeof octal, "%o", value);
    std::snprintf(hex, sizeof hex, "%X", value);
    const std::string ten = std::strlen(octal) > 10 ? octal + 1 : octal;  // digits, the lowest
    ASSERT_EQ(
        print(field + "d|" + field + "u|" + field + "o|" + field + "x|" + field + "p|", number,
              value, value, value, reinterpret_cast<void*>(std::uintptr_t{value})),
        filled(number < 0 ? "-" : "", std::to_string(std::abs(std::int64_t{number})), width) +
            filled("", std::to_string(value), width) + filled(alternate ? "0" : "", ten, width) +
            filled(alternate ? "$" : "", hex, width) + filled("$", hex, width == 0 ? 0 : width + 1))
        << field;
  }
}

TEST(SioPrintf, WhatIsNoConversionIsWrittenBehindAPercentSign) {
  const std::pair<const char*, const char*> cases[] = {{"", ""},
                                                       {"%%", "%"},
                                                       {"%5%", "%"},
                                                       {"%q", "%q"},
                                                       {"%5q", "%q"},
                                                       {"%-5d", "%-5d"},
                                                       {"%ld", "%ld"},
                                                       {"%.3d", "%.3d"},
                                                       {"%", "%"},
                                                       {"a%#0", "a%"},
                                                       {"a%99999999999", "a%"},
                                                       {"100%\n", "100%\n"},
                                                       {"%#%d%", "%d%"}};
  for (const auto& [format, output] : cases) {
    EXPECT_EQ(print(format), output) << format;
  }
}

TEST(Sio, CharactersAndStringsGoOutInOrderAndComeIn) {
  testing::internal::CaptureStdout();
  sio_init(0, 9600);
  std::printf("a");
  sio_putc('b', 1);
  sio_puts("c%d", 0);
  sio_putc(0x164, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "abc%dd");
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "x\xFF", 2), 2);
  close(ends[1]);
  dup2(ends[0], STDIN_FILENO);
  EXPECT_EQ(sio_getc(0), 'x');
  for (const int next : {0xFF, EOF, EOF}) {
    EXPECT_EQ(sio_may_getc(0), next);
  }
  EXPECT_EQ(sio_getc(0), EOF);
}

}  // namespace
