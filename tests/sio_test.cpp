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
  EXPECT_EQ(print(""), "");
  EXPECT_EQ(print("%d", 0), "0");
  EXPECT_EQ(print("%5d", 42), "   42");
  EXPECT_EQ(print("%05d", -42), "-0042");
  EXPECT_EQ(print("%5d", -42), "-  42");
  EXPECT_EQ(print("%d", INT_MIN), "-2147483648");
  EXPECT_EQ(print("%#d", 7), "7");
  EXPECT_EQ(print("%u", UINT_MAX), "4294967295");
  EXPECT_EQ(print("%x", 255U), "FF");
  EXPECT_EQ(print("%#x", 255U), "$FF");
  EXPECT_EQ(print("%#6x", 255U), "$   FF");
  EXPECT_EQ(print("%08x", 0xBEEFU), "0000BEEF");
  EXPECT_EQ(print("%o", 8U), "10");
  EXPECT_EQ(print("%#o", 8U), "010");
  EXPECT_EQ(print("%o", UINT_MAX), "7777777777");
  EXPECT_EQ(print("%#o", 0U), "00");
  EXPECT_EQ(print("%#x", 0U), "$0");
  void* const pointer = reinterpret_cast<void*>(std::uintptr_t{0x1234});
  EXPECT_EQ(print("%p", pointer), "$1234");
  EXPECT_EQ(print("%6p", pointer), "$  1234");
  EXPECT_EQ(print("%06p", pointer), "$001234");
  EXPECT_EQ(print("%5s", "ab"), "ab   ");
  EXPECT_EQ(print("%05s", "ab"), "ab   ");
  EXPECT_EQ(print("%1s", "ab"), "ab");
  EXPECT_EQ(print("%2s|", static_cast<const char*>(nullptr)), "  |");
  EXPECT_EQ(print("%3c", 65), "A");
  EXPECT_EQ(print("%c", 0x141), "A");

  // Every digit of the widest pointer, with and without a field that is wide enough.
  char expected[40];
  std::snprintf(expected, sizeof expected, "$%jX", static_cast<std::uintmax_t>(UINTPTR_MAX));
  void* const last = reinterpret_cast<void*>(UINTPTR_MAX);
  EXPECT_EQ(print("%p", last), expected);
  EXPECT_EQ(print("%3p", last), expected);
}

TEST(SioPrintf, WhatIsNoConversionIsWrittenBehindAPercentSign) {
  const struct {
    const char* format;
    const char* output;
  } cases[] = {{"%%", "%"},      {"%5%", "%"},   {"%q", "%q"},    {"%5q", "%q"},
               {"%-5d", "%-5d"}, {"%ld", "%ld"}, {"%+d", "%+d"},  {"% d", "% d"},
               {"%.3d", "%.3d"}, {"%", "%"},     {"a%#0", "a%"},  {"a%012", "a%"},
               {"%i%X", "%i%X"}, {"%5", "%"},    {"%5\n", "%\n"}, {"100%\n", "100%\n"},
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
    if (random.oneIn(2)) {
      width = 1 + random.below(25);
      text += std::to_string(width);
    }
  }

  std::string text;
  bool alternate = false;
  bool zero = false;
  std::size_t width = 0;
};

std::string digitsOf(std::uintmax_t value, unsigned int base, std::size_t most) {
  std::string digits;
  for (; value != 0; value /= base) {
    digits.insert(digits.begin(), "0123456789ABCDEF"[value % base]);
  }
  digits = digits.empty() ? "0" : digits;
  return digits.size() > most ? digits.substr(digits.size() - most) : digits;
}

std::string number(const Field& field, const std::string& front, const std::string& digits,
                   std::size_t width) {
  const std::size_t used = front.size() + digits.size();
  return front + std::string(used < width ? width - used : 0, field.zero ? '0' : ' ') + digits;
}

std::string reference(const Field& field, char letter, unsigned int value) {
  const long long negative = static_cast<int>(value) < 0 ? 0x100000000LL - value : 0;
  switch (letter) {
    case 'd':
      return negative != 0 ? number(field, "-", std::to_string(negative), field.width)
                           : number(field, "", std::to_string(value), field.width);
    case 'u':
      return number(field, "", std::to_string(value), field.width);
    case 'o':
      return number(field, field.alternate ? "0" : "", digitsOf(value, 8, 10), field.width);
    case 'x':
      return number(field, field.alternate ? "$" : "", digitsOf(value, 16, 10), field.width);
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

// Values of every magnitude, and the ends of the range.
unsigned int anyValue(Random& random) {
  const unsigned int value = random.word() >> random.below(32);
  return random.oneIn(2) ? value : 0U - value;
}

TEST(SioPrintf, AgreesWithTheReferenceOverRandomFormats) {
  Random random(1);
  for (int round = 0; round < 20000; ++round) {
    const Field first(random), second(random), third(random), fourth(random);
    const char letters[2] = {"duoxc"[random.below(5)], "duoxc"[random.below(5)]};
    const unsigned int values[2] = {anyValue(random), anyValue(random)};
    const std::string text = plainText(random);
    const std::uintptr_t address = static_cast<std::uintptr_t>(
        (static_cast<std::uint64_t>(random.word()) << 32 | random.word()) >> random.below(64));
    const std::string between[4] = {plainText(random), plainText(random), plainText(random),
                                    plainText(random)};

    const std::string format = between[0] + "%" + first.text + letters[0] + between[1] + "%" +
                               second.text + "s%" + third.text + "p" + between[2] + "%" +
                               fourth.text + letters[1] + "%" + first.text + "%" + between[3];
    const std::string padded =
        text + std::string(text.size() < second.width ? second.width - text.size() : 0, ' ');
    const std::string expected =
        between[0] + reference(first, letters[0], values[0]) + between[1] + padded +
        number(third, "$", digitsOf(address, 16, 99), third.width == 0 ? 0 : third.width + 1) +
        between[2] + reference(fourth, letters[1], values[1]) + "%" + between[3];
    ASSERT_EQ(print(format, values[0], text.c_str(), reinterpret_cast<void*>(address), values[1]),
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
