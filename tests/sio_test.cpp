// The console's formatter against a reference made of strings, and its input.
#include "sio.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>

#include "random.h"

namespace {

template <class... Arguments>
std::string print(const std::string& format, Arguments... arguments) {
  testing::internal::CaptureStdout();
  sio_printf(0, format.c_str(), arguments...);
  return testing::internal::GetCapturedStdout();
}

TEST(SioPrintf, NumbersStringsAndPointers) {
  EXPECT_EQ(print("%d|%5d|%05d|%5d|%#d", 0, 42, -42, -42, 7), "0|   42|-0042|-  42|7");
  EXPECT_EQ(print("%d|%u", INT_MIN, UINT_MAX), "-2147483648|4294967295");
  EXPECT_EQ(print("%x|%#x|%#6x|%08x|%#x", 255U, 255U, 255U, 0xBEEFU, 0U),
            "FF|$FF|$   FF|0000BEEF|$0");
  EXPECT_EQ(print("%o|%#o|%o|%#o", 8U, 8U, UINT_MAX, 0U), "10|010|7777777777|00");
  void* const pointer = reinterpret_cast<void*>(std::uintptr_t{0x1234});
  EXPECT_EQ(print("%p|%6p|%06p", pointer, pointer, pointer), "$1234|$  1234|$001234");
  EXPECT_EQ(print("%5s|%05s|%1s|%2s|", "ab", "ab", "ab", static_cast<const char*>(nullptr)),
            "ab   |ab   |ab|  |");
  EXPECT_EQ(print("%3c%c", 65, 0x141), "AA");
}

TEST(SioPrintf, WhatIsNoConversionIsWrittenBehindAPercentSign) {
  const struct {
    const char* format;
    const char* output;
  } cases[] = {{"", ""},        {"%%", "%"},      {"%5%", "%"},    {"%q", "%q"},
               {"%5q", "%q"},   {"%-5d", "%-5d"}, {"%ld", "%ld"},  {"%+d", "%+d"},
               {"% d", "% d"},  {"%.3d", "%.3d"}, {"%", "%"},      {"a%#0", "a%"},
               {"a%012", "a%"}, {"%i%X", "%i%X"}, {"%5\n", "%\n"}, {"100%\n", "100%\n"},
               {"%#%d%", "%d%"}};
  for (const auto& each : cases) {
    EXPECT_EQ(print(each.format), each.output) << each.format;
  }
}

// A random field, and what it comes to as the reference understands it.
struct Field {
  explicit Field(Random& random) {
    for (unsigned int n = random.below(3); n > 0; --n) {
      const bool sharp = random.oneIn(2);
      (sharp ? alternate : zero) = true;
      text += sharp ? '#' : '0';
    }
    width = random.oneIn(2) ? 1 + random.below(25) : 0;
    text += width == 0 ? "" : std::to_string(width);
  }

  std::string text;
  bool alternate = false;
  bool zero = false;
  std::size_t width = 0;
};

std::string number(const Field& field, const std::string& front, std::uintmax_t value,
                   unsigned int base, std::size_t most, std::size_t width) {
  std::string digits;
  do {
    digits.insert(digits.begin(), "0123456789ABCDEF"[value % base]);
    value /= base;
  } while (value != 0 && digits.size() < most);
  const std::size_t used = front.size() + digits.size();
  return front + std::string(used < width ? width - used : 0, field.zero ? '0' : ' ') + digits;
}

std::string reference(const Field& field, char letter, unsigned int value) {
  switch (letter) {
    case 'd':
      if (value > INT_MAX) {
        return number(field, "-", 0x100000000U - std::uintmax_t{value}, 10, 10, field.width);
      }
      [[fallthrough]];
    case 'u':
      return number(field, "", value, 10, 10, field.width);
    case 'o':
      return number(field, field.alternate ? "0" : "", value, 8, 10, field.width);
    case 'x':
      return number(field, field.alternate ? "$" : "", value, 16, 10, field.width);
    default:
      return std::string(1, static_cast<char>(value));
  }
}

std::string plainText(Random& random) {
  std::string text;
  for (unsigned int n = random.below(4); n > 0; --n) {
    const char c = static_cast<char>(1 + random.below(255));
    text += c == '%' ? 'p' : c;
  }
  return text;
}

TEST(SioPrintf, AgreesWithTheReferenceOverRandomFormats) {
  Random random(1);
  for (int round = 0; round < 20000; ++round) {
    const Field first(random), second(random), third(random);
    const char letter = "duoxc"[random.below(5)];
    const unsigned int size = random.word() >> random.below(32);  // of every magnitude
    const unsigned int value = random.oneIn(2) ? size : 0U - size;
    const std::string text = plainText(random);
    const std::uintptr_t address = static_cast<std::uintptr_t>(
        (static_cast<std::uint64_t>(random.word()) << 32 | random.word()) >> random.below(64));
    const std::string front = plainText(random);
    const std::string back = plainText(random);

    const std::string format = front + "%" + first.text + letter + "%" + second.text + "s%" +
                               third.text + "p%" + first.text + "%%" + second.text + letter + back;
    const std::string expected =
        front + reference(first, letter, value) + text +
        std::string(text.size() < second.width ? second.width - text.size() : 0, ' ') +
        number(third, "$", address, 16, 99, third.width == 0 ? 0 : third.width + 1) + "%" +
        reference(second, letter, ~value) + back;
    ASSERT_EQ(print(format, value, text.c_str(), reinterpret_cast<void*>(address), ~value),
              expected)
        << format;
  }
}

TEST(Sio, CharactersAndStringsGoToStandardOutputInOrder) {
  testing::internal::CaptureStdout();
  sio_init(0, 9600);
  std::printf("a");
  sio_putc('b', 1);
  sio_puts("c%d", 0);
  sio_putc(0x164, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "abc%dd");
}

TEST(Sio, CharactersComeFromStandardInput) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "x\xFF", 2), 2);
  close(ends[1]);
  dup2(ends[0], STDIN_FILENO);
  EXPECT_EQ(sio_getc(0), 'x');
  EXPECT_EQ(sio_may_getc(0), 0xFF);
  EXPECT_EQ(sio_may_getc(0), EOF);
  EXPECT_EQ(sio_getc(0), EOF);
}

}  // namespace
