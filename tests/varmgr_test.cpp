// Value buffers and the three value types.
#include "varmgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "ctrlwrap.h"
#include "random.h"

namespace {

// The value types leave the transaction open; here it is logged and refuses as told.
template <class Base>
class Plain : public Base {
 public:
  using Base::Base;
  bool refresh() override { return calls += 'r', true; }
  void init() override { calls += 'i'; }
  bool startXaction() override { return calls += 's', starts; }
  void endXaction() override {}
  bool isConsistent() override { return calls += 'c', consistent; }
  void commit() const override { calls += 'p'; }
  bool starts = true;
  bool consistent = true;
  mutable std::string calls;
};

using Int = Plain<ReadWriteVarMgrInt>;
using Str = Plain<ReadWriteVarMgrStr>;

const bounds_t GAPPED[] = {{0, 10}, {20, 30}, BOUNDS_END};

// Sets `value`; whether it was valid.
bool setInt(ReadWriteVarMgr& var, int value) {
  unsigned char buf[4];
  ReadVarMgr::setBufInt(buf, sizeof buf, value);
  var.set(buf, sizeof buf);
  return var.validate(buf, sizeof buf);
}

TEST(ValueBuffer, IntegersOfEveryWidthAreTwosComplementMostSignificantByteFirst) {
  Random random(4);
  for (int round = 0; round < 200; ++round) {
    const unsigned int bits = random.word() >> random.below(32);
    const std::int64_t value = static_cast<int>(random.oneIn(2) ? bits : ~bits);
    for (unsigned int size = 1; size <= 9; ++size) {
      std::string buf(size + 1, '\x5A');
      ReadVarMgr::setBufInt(&buf[0], size, static_cast<int>(value));
      std::int64_t kept = 0;  // what the bytes spell, sign-extended
      for (unsigned int i = 0; i < size; ++i) {
        ASSERT_EQ(static_cast<unsigned char>(buf[i]),
                  (value >> std::min(8 * (size - 1 - i), 63U)) & 0xFF);
        kept = i == 0 ? static_cast<signed char>(buf[i])
                      : kept * 256 + static_cast<unsigned char>(buf[i]);
      }
      ASSERT_EQ(buf[size], '\x5A');
      ASSERT_EQ(ReadWriteVarMgr::convert(buf.data(), size), kept) << value << " in " << size;
    }
  }
}

TEST(ValueBuffer, NothingIsTouchedWithoutABufferOrASize) {
  std::string buf = "\xA5";
  ReadVarMgr::setBufInt(nullptr, 4, 1);
  ReadVarMgr::setBufInt(&buf[0], 0, 1);
  ReadVarMgr::setBufStr(nullptr, 4, "x", false);
  ReadVarMgr::setBufStr(&buf[0], 0, "x", true);
  EXPECT_EQ(buf, "\xA5");
  EXPECT_EQ(ReadWriteVarMgr::convert(nullptr, 4), 0);
  EXPECT_EQ(ReadWriteVarMgr::convert(&buf[0], 0), 0);
  EXPECT_FALSE(Int(nullptr, RANGE_CLIP).validate(nullptr, 4));
  EXPECT_TRUE(Int(nullptr, RANGE_CLIP).validate(nullptr, 0));
  Str none(nullptr, 0, nullptr);
  none.set("x", 1);
  none.setChar('x', 0);
  EXPECT_FALSE(none.validate(nullptr, 4));
  buf = "12345";
  ReadVarMgr::setBufStr(&buf[0], 4, "a\0b", true);
  EXPECT_EQ(buf, std::string("a\0b\0005", 5)) << "copied as it is";
  ReadVarMgr::setBufStr(&buf[0], 4, nullptr, false);
  EXPECT_EQ(buf, std::string("\0\0\0\0005", 5)) << "no text is an empty one";
}

TEST(VarMgrInt, IncrementJumpsGapsInItsDirectionAndWrapsIn32Bits) {
  const struct {
    const bounds_t* bounds;
    int from, delta, wrapped, clipped;
  } steps[] = {{GAPPED, 10, 1, 20, 20}, {GAPPED, 20, -1, 10, 10},
               {GAPPED, 30, 1, 0, 30},  {GAPPED, 0, -1, 30, 0},
               {GAPPED, 5, 0, 5, 5},    {nullptr, 2147483647, 1, -2147483647 - 1, -2147483647 - 1}};
  for (const auto& s : steps) {
    for (const range_t policy : {RANGE_WRAP, RANGE_CLIP}) {
      Int var(s.bounds, policy);
      setInt(var, s.from);
      var.increment(s.delta);
      EXPECT_EQ(var.get(), policy == RANGE_WRAP ? s.wrapped : s.clipped) << s.from;
    }
  }
  Plain<ReadWriteVarMgrBool> toggle(RANGE_WRAP);
  setInt(toggle, toggle.ON);
  toggle.increment(1);
  EXPECT_EQ(toggle.get(), toggle.OFF);
  EXPECT_EQ(toggle.getType(), DATA_TYPE_BOOL);
  EXPECT_FALSE(setInt(toggle, 2));
}

TEST(VarMgrStr, CharactersAreForcedIntoTheirClass) {
  const struct {
    const bounds_t* chars;
    std::string in, out;
  } cases[] = {{Str::BOUNDS_DIGIT, "1a2", "192"},
               {Str::BOUNDS_ALNUM, "a-b:c", "a0bAc"},
               {Str::BOUNDS_ALPHA, "[", "a"},
               {Str::BOUNDS_HEX, "a", "F"},
               {Str::BOUNDS_PRINTABLE, "\xE9\t", "~ "},
               {Str::BOUNDS_ALPHA_UPPER, "aZ9", "ZZA"},
               {Str::BOUNDS_ALPHA_LOWER, "aZ~", "aaz"},
               {Str::BOUNDS_DIGIT, "1234567x", "1234567"},  // looks at what fits only
               {nullptr, "\x01\xFF\x80", "\x01\xFF\x80"}};
  for (const auto& c : cases) {
    char buf[8];
    Str var(buf, sizeof buf, c.chars);
    const unsigned int size = static_cast<unsigned int>(c.in.size());
    EXPECT_EQ(var.validate(c.in.data(), size), c.in.substr(0, 7) == c.out) << c.in;
    var.set(c.in.data(), size);
    EXPECT_EQ(var.get(), c.out);
    unsigned int rows = 9;
    EXPECT_TRUE(var.getBounds(rows) == c.chars && rows == calcNumBounds(c.chars));
    var.set(nullptr, 3);
    EXPECT_EQ(var.get(), c.out);
  }
}

// A text variable against a plain array that is never looked at behind its first zero, with random
// operations and guard bytes round its buffer.
TEST(VarMgrStr, BehavesAsABoundedString) {
  Random random(5);
  for (unsigned int bufSize : {0U, 1U, 2U, 5U, 9U}) {
    std::string memory(bufSize + 2, '\x5A');
    Str var(&memory[1], bufSize, nullptr);
    const unsigned int capacity = bufSize == 0 ? 0 : bufSize - 1;
    ASSERT_EQ(var.maxlen(), capacity);
    std::string bytes(capacity + 1, '\0');
    for (int i = 0; i < 3000; ++i) {
      std::string in(random.below(12), '\0');
      for (char& c : in) {
        c = static_cast<char>(random.oneIn(6) ? 0 : 'a' + random.below(26));
      }
      const unsigned int size = static_cast<unsigned int>(in.size());
      if (random.oneIn(2)) {
        ASSERT_TRUE(var.validate(in.data(), size));
        var.set(in.data(), size);
        if (size > 0 && capacity > 0) {
          bytes.replace(0, std::min(size, capacity), in, 0, capacity);
          bytes[std::min(size, capacity)] = 0;
        }
      } else if (bufSize > 0) {
        var.setChar(in[0], size);  // of no text its terminating zero
        if (size < capacity && size <= std::strlen(bytes.c_str())) {
          bytes[size] = in[0];
        }
      }
      std::string out(7, '\x5A');
      const unsigned int room = random.below(7);
      static_cast<const ReadVarMgr&>(var).get(&out[0], room);
      std::string expected = std::string(bytes.c_str()).substr(0, room == 0 ? 0 : room - 1);
      expected.resize(room, '\0');
      ASSERT_EQ(out.substr(0, room + 1), expected + '\x5A');
    }
    EXPECT_EQ(memory.front(), '\x5A');
    EXPECT_EQ(memory.back(), '\x5A');
  }
}

TEST(VarMgrSequences, StopAtTheFirstRefusal) {
  unsigned char buf[4];
  Int var(GAPPED, RANGE_CLIP);
  CtrlReadWriteVarMgr entry(1, 0, var);
  EXPECT_FALSE(entry.validate("\x0F", 1)) << "15 lies in the gap";
  EXPECT_TRUE(entry.validate("\x14", 1));
  EXPECT_EQ(entry.set("\x0F", 1), 0);
  EXPECT_EQ(entry.confirm(), 0);
  EXPECT_EQ(startVarMgrReset(var), 0);
  entry.get(buf, 4);
  entry.init();
  EXPECT_EQ(buf[3], 20);
  EXPECT_EQ(var.calls, "srsrcpsiri");
  var.calls.clear();
  var.starts = var.consistent = false;
  EXPECT_EQ(startVarMgrSet(var, "\x01", 1), 1);
  EXPECT_EQ(startVarMgrReset(var), 1);
  EXPECT_FALSE(entry.validate("\x14", 1));
  EXPECT_EQ(entry.confirm(), 1);
  EXPECT_EQ(var.calls, "sssc");
  EXPECT_EQ(var.get(), 20);
}

}  // namespace
