// Value buffers and the three value types.
#include "varmgr.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "random.h"

namespace {

// The value types leave the transaction open; here it always agrees.
template <class Base>
class Plain : public Base {
 public:
  using Base::Base;
  bool refresh() override { return false; }
  void init() override {}
  bool startXaction() override { return true; }
  void endXaction() override {}
  bool isConsistent() override { return true; }
  void commit() const override {}
};

using Int = Plain<ReadWriteVarMgrInt>;
using Bool = Plain<ReadWriteVarMgrBool>;
using Str = Plain<ReadWriteVarMgrStr>;

const bounds_t GAPPED[] = {{0, 10}, {20, 30}, BOUNDS_END};

void setInt(ReadWriteVarMgr& var, int value) {
  unsigned char buf[4];
  ReadVarMgr::setBufInt(buf, sizeof buf, value);
  var.set(buf, sizeof buf);
}

bool validInt(const ReadWriteVarMgr& var, int value) {
  unsigned char buf[4];
  ReadVarMgr::setBufInt(buf, sizeof buf, value);
  return var.validate(buf, sizeof buf);
}

// Byte i of an infinitely wide two's complement number, i counting from the lowest.
unsigned char wideByte(int value, unsigned int i) {
  const std::int64_t wide = value;
  return static_cast<unsigned char>(i < 8 ? wide >> (8 * i) : wide < 0 ? 0xFF : 0);
}

TEST(ValueBuffer, IntegersOfEveryWidthAreTwosComplementMostSignificantByteFirst) {
  Random random(4);
  std::vector<int> values = {0, 1, -1, -2, 0x12345678, ReadWriteVarMgrInt::DEFAULT, 0x7FFFFFFF};
  while (values.size() < 200) {
    values.push_back(static_cast<int>(random.word() >> (random.below(32))));
  }
  for (const int value : values) {
    for (unsigned int size = 1; size <= 9; ++size) {
      unsigned char buf[11];
      std::memset(buf, 0xA5, sizeof buf);
      ReadVarMgr::setBufInt(buf + 1, size, value);
      EXPECT_EQ(buf[0], 0xA5);
      EXPECT_EQ(buf[1 + size], 0xA5);
      for (unsigned int i = 0; i < size; ++i) {
        ASSERT_EQ(buf[size - i], wideByte(value, i)) << value << " in " << size;
      }
      // What comes back is what the bytes spell, sign-extended.
      const unsigned int shift = size < 4 ? 32 - 8 * size : 0;
      const std::int64_t kept = static_cast<std::int64_t>(
          static_cast<std::uint64_t>(static_cast<std::int64_t>(value)) << (32 + shift));
      ASSERT_EQ(ReadWriteVarMgr::convert(buf + 1, size), kept >> (32 + shift));
    }
  }
}

TEST(ValueBuffer, NothingIsTouchedWithoutABufferOrASize) {
  unsigned char one = 0xA5;
  ReadVarMgr::setBufInt(nullptr, 4, 1);
  ReadVarMgr::setBufInt(&one, 0, 1);
  ReadVarMgr::setBufStr(nullptr, 4, "x", false);
  ReadVarMgr::setBufStr(&one, 0, "x", true);
  EXPECT_EQ(one, 0xA5);
  EXPECT_EQ(ReadWriteVarMgr::convert(nullptr, 0), 0);
}

TEST(ValueBuffer, TextsAreCutTerminatedAndPadded) {
  for (unsigned int size = 1; size <= 9; ++size) {
    for (const char* text : {"", "abc", "abcdefgh", static_cast<const char*>(nullptr)}) {
      std::string expected = text == nullptr ? "" : std::string(text).substr(0, size - 1);
      expected.resize(size, '\0');
      std::string buf(size + 1, '\x5A');
      ReadVarMgr::setBufStr(&buf[0], size, text, false);
      EXPECT_EQ(buf, expected + '\x5A');
    }
  }
  char raw[4];
  const char unterminated[4] = {'a', 0, 'b', 'c'};
  ReadVarMgr::setBufStr(raw, 4, unterminated, true);
  EXPECT_EQ(std::memcmp(raw, unterminated, 4), 0);
}

TEST(VarMgrInt, RefusesNoBuffer) {
  Int var(nullptr, RANGE_CLIP);
  EXPECT_FALSE(var.validate(nullptr, 4));
  EXPECT_EQ(ReadWriteVarMgr::convert(nullptr, 4), 0);
}

TEST(VarMgrInt, ReadsAsDefaultUntilItHasAValue) {
  const Int var(GAPPED, RANGE_CLIP);
  unsigned char buf[4];
  static_cast<const ReadVarMgr&>(var).get(buf, 4);
  EXPECT_EQ(ReadWriteVarMgr::convert(buf, 4), -2147483647 - 1);
  static_cast<const ReadVarMgr&>(var).get(buf, 2);
  EXPECT_EQ(ReadWriteVarMgr::convert(buf, 2), 0);
  EXPECT_EQ(var.getType(), DATA_TYPE_INT);
  unsigned int rows = 0;
  EXPECT_EQ(var.getBounds(rows), GAPPED);
  EXPECT_EQ(rows, 2U);
}

TEST(VarMgrInt, ValidateAsksForARowAndSetForcesByThePolicy) {
  Int wrap(GAPPED, RANGE_WRAP);
  Int clip(GAPPED, RANGE_CLIP);
  Int free(nullptr, RANGE_WRAP);
  for (int v = -80; v <= 80; ++v) {
    const bool inRow = (v >= 0 && v <= 10) || (v >= 20 && v <= 30);
    EXPECT_EQ(validInt(wrap, v), inRow);
    EXPECT_EQ(validInt(clip, v), inRow);
    EXPECT_TRUE(validInt(free, v));
    setInt(wrap, v);
    setInt(clip, v);
    setInt(free, v);
    EXPECT_EQ(wrap.get(), getBoundsVal(v, true, RANGE_WRAP, GAPPED, 2));
    EXPECT_EQ(clip.get(), getBoundsVal(v, true, RANGE_CLIP, GAPPED, 2));
    EXPECT_EQ(free.get(), v);
  }
}

TEST(VarMgrInt, IncrementJumpsGapsInItsDirectionAndWrapsIn32Bits) {
  struct {
    int from, delta, wrapped, clipped;
  } const steps[] = {{10, 1, 20, 20}, {20, -1, 10, 10}, {30, 1, 0, 30},
                     {0, -1, 30, 0},  {5, 0, 5, 5},     {25, 0, 25, 25}};
  for (const auto& s : steps) {
    Int wrap(GAPPED, RANGE_WRAP);
    Int clip(GAPPED, RANGE_CLIP);
    setInt(wrap, s.from);
    setInt(clip, s.from);
    wrap.increment(s.delta);
    clip.increment(s.delta);
    EXPECT_EQ(wrap.get(), s.wrapped) << s.from << " by " << s.delta;
    EXPECT_EQ(clip.get(), s.clipped) << s.from << " by " << s.delta;
  }
  Int free(nullptr, RANGE_CLIP);
  setInt(free, 2147483647);
  free.increment(1);
  EXPECT_EQ(free.get(), -2147483647 - 1);
}

TEST(VarMgrBool, TogglesOrStops) {
  Bool toggle(RANGE_WRAP);
  Bool stop(RANGE_CLIP);
  setInt(toggle, Bool::ON);
  setInt(stop, Bool::ON);
  toggle.increment(1);
  stop.increment(1);
  EXPECT_EQ(toggle.get(), Bool::OFF);
  EXPECT_EQ(stop.get(), Bool::ENABLE);
  EXPECT_FALSE(validInt(stop, 2));
  EXPECT_EQ(stop.getType(), DATA_TYPE_BOOL);
}

TEST(VarMgrStr, CharactersAreForcedIntoTheirClass) {
  struct {
    const bounds_t* chars;
    std::string in, out;
  } const cases[] = {{Str::BOUNDS_DIGIT, "1a2", "192"},
                     {Str::BOUNDS_ALNUM, "a-b", "a0b"},
                     {Str::BOUNDS_ALNUM, "a:b", "aAb"},
                     {Str::BOUNDS_ALPHA, "[", "a"},
                     {Str::BOUNDS_HEX, "a", "F"},
                     {Str::BOUNDS_PRINTABLE, "\xE9", "~"},
                     {Str::BOUNDS_PRINTABLE, "\t", " "},
                     {Str::BOUNDS_ALPHA_UPPER, "aZ9", "ZZA"},
                     {Str::BOUNDS_ALPHA_LOWER, "aZ~", "aaz"},
                     {nullptr, "\x01\xFF\x80", "\x01\xFF\x80"},
                     {Str::BOUNDS_PRINTABLE, "plain", "plain"}};
  for (const auto& c : cases) {
    char buf[8];
    Str var(buf, sizeof buf, c.chars);
    const unsigned int size = static_cast<unsigned int>(c.in.size());
    EXPECT_EQ(var.validate(c.in.data(), size), c.in == c.out) << c.in;
    var.set(c.in.data(), size);
    EXPECT_EQ(var.get(), c.out);
    EXPECT_TRUE(var.validate(c.out.data(), static_cast<unsigned int>(c.out.size())));
  }
}

// A text variable against a plain array that is never looked at behind its first zero, with random
// operations and guard bytes round its buffer.
TEST(VarMgrStr, BehavesAsABoundedString) {
  Random random(5);
  for (unsigned int bufSize : {0U, 1U, 2U, 5U, 9U}) {
    std::vector<char> memory(bufSize + 2, '\x5A');
    Str var(memory.data() + 1, bufSize, nullptr);
    const unsigned int capacity = bufSize == 0 ? 0 : bufSize - 1;
    ASSERT_EQ(var.maxlen(), capacity);
    std::string bytes(capacity + 1, '\0');
    for (int i = 0; i < 3000; ++i) {
      if (random.oneIn(2)) {
        char in[12];
        for (char& c : in) {
          c = static_cast<char>(random.oneIn(6) ? 0 : 'a' + random.below(26));
        }
        const unsigned int size = random.below(sizeof in);
        ASSERT_TRUE(var.validate(in, size));
        var.set(in, size);
        if (size > 0 && capacity > 0) {
          bytes.replace(0, std::min(size, capacity), in, std::min(size, capacity));
          bytes[std::min(size, capacity)] = 0;
        }
      } else if (bufSize > 0) {
        const char c = static_cast<char>(random.oneIn(4) ? 0 : 'A' + random.below(26));
        const unsigned int pos = random.below(11);
        var.setChar(c, pos);
        if (pos < capacity && pos <= std::strlen(bytes.c_str())) {
          bytes[pos] = c;
        }
      }
      std::string out(7, '\x5A');
      const unsigned int room = random.below(7);
      static_cast<const ReadVarMgr&>(var).get(&out[0], room);
      std::string expected = std::string(bytes.c_str()).substr(0, room == 0 ? 0 : room - 1);
      expected.resize(room, '\0');
      ASSERT_EQ(out.substr(0, room), expected);
      ASSERT_EQ(out[room], '\x5A');
    }
    EXPECT_EQ(memory.front(), '\x5A');
    EXPECT_EQ(memory.back(), '\x5A');
  }
}

TEST(VarMgrStr, RefusesNoBufferAndLooksAtWhatFitsOnly) {
  char buf[5];
  Str var(buf, sizeof buf, Str::BOUNDS_DIGIT);
  EXPECT_FALSE(var.validate(nullptr, 3));
  EXPECT_TRUE(var.validate("1234xyz", 7));
  EXPECT_FALSE(var.validate("123x", 4));
  var.set("1234xyz", 7);
  EXPECT_STREQ(var.get(), "1234");
  var.set(nullptr, 3);
  EXPECT_STREQ(var.get(), "1234");
  EXPECT_EQ(var.getType(), DATA_TYPE_STRING);
  unsigned int rows = 0;
  EXPECT_EQ(var.getBounds(rows), Str::BOUNDS_DIGIT);
  EXPECT_EQ(rows, 1U);
}

// The four sequences of a change, with a variable that refuses as told.
class Refusing : public Int {
 public:
  Refusing() : Int(nullptr, RANGE_CLIP) {}
  bool refresh() override { return log("refresh"); }
  void init() override { log("init"); }
  bool startXaction() override { return log("start") && starts; }
  void set(const void*, unsigned int) override { log("set"); }
  bool isConsistent() override { return log("consistent") && consistent; }
  void commit() const override { calls += "commit "; }
  bool log(const char* call) {
    calls += call;
    calls += ' ';
    return true;
  }
  bool starts = true;
  bool consistent = true;
  mutable std::string calls;
};

TEST(VarMgrSequences, StopAtTheFirstRefusal) {
  unsigned char buf[4];
  Refusing var;
  getCurVarMgrVal(var, buf, sizeof buf);
  EXPECT_EQ(startVarMgrSet(var, buf, sizeof buf), 0);
  EXPECT_EQ(startVarMgrReset(var), 0);
  EXPECT_EQ(commitVarMgr(var), 0);
  EXPECT_EQ(var.calls, "refresh start set start init consistent commit ");
  var.starts = var.consistent = false;
  var.calls.clear();
  EXPECT_NE(startVarMgrSet(var, buf, sizeof buf), 0);
  EXPECT_EQ(startVarMgrReset(var), 1);
  EXPECT_EQ(commitVarMgr(var), 1);
  EXPECT_EQ(var.calls, "start start consistent ");
}

}  // namespace
