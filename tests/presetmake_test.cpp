// Fields and images against a naive bit writer, and the calls that a list makes on its fields.
#include "presetmake.h"

#include <utility>

#include "fatal.h"
#include "presetlist.h"

namespace {

constexpr unsigned char GUARD = 0xA5;

// Packs the list into exactly `size` bytes and tells whether the bytes behind are untouched.
int pack(const PresetList& list, unsigned int size, unsigned int verSize,
         std::vector<unsigned char>& image) {
  image.assign(size + 8, GUARD);
  const int length = createPreset(image.data(), size, verSize, list.table());
  for (std::size_t i = size; i < image.size(); ++i) {
    EXPECT_EQ(image[i], GUARD) << "written behind the buffer";
  }
  image.resize(length < 0 ? 0 : static_cast<unsigned int>(length));
  return length;
}

TEST(CreatePreset, MatchesTheNaiveWriterAndFailsAtEverySizeBelow) {
  Random random(43);
  for (int run = 0; run < 400; ++run) {
    PresetList list;
    list.addRandomRows(random, PresetList::FIRST[random.below(4)]);
    ASSERT_EQ(initPreset(list.table()), list.version());
    list.change(random);
    const unsigned int verSize = 1 + static_cast<unsigned int>(run) % 4;
    const auto expected = naiveImage(list.version(), verSize, list.bits(list.version()));
    const unsigned int length = static_cast<unsigned int>(expected.size());
    std::vector<unsigned char> image;
    for (unsigned int size = 0; size < length; ++size) {
      ASSERT_EQ(pack(list, size, verSize, image), -1) << size << " of " << length;
    }
    ASSERT_EQ(pack(list, length + random.below(2), verSize, image), static_cast<int>(length));
    ASSERT_EQ(image, expected);
    ASSERT_EQ(createPreset(image.data(), 0xFFFFFFFF, verSize, list.table()),
              static_cast<int>(length));
  }
}

// A field that notes the calls on it in one common story.
class Counting : public PresetField {
 public:
  Counting(std::string& s, char n) : story(s), name(n) {}
  void init() override { note("init", 0); }
  int reset() override { return note("reset", resetResult); }
  int set(void**, unsigned int, unsigned int&) override { return note("set", setResult); }
  int get(void**, unsigned int, unsigned int&) override { return note("get", 0); }
  int commit() const override { return note("commit", commitResult); }
  void endCommit() override { note("end", 0); }

  int resetResult = 0, setResult = 0, commitResult = 0;

 private:
  int note(const char* call, int result) const {
    story += std::string(call) + name + ' ';
    return result;
  }

  std::string& story;
  const char name;
};

class PresetMakeDeathTest : public testing::Test {
 protected:
  // The result of an operation, and the calls that it made.
  std::string calls(long long result) {
    return std::to_string(result) + ": " + std::exchange(story, "");
  }

  std::string story;
  Counting a{story, 'A'}, b{story, 'B'}, c{story, 'C'}, d{story, 'D'};
  // B was dropped; A, C and D are current.
  const verPresetField_t list[5] = {{0, PRESET_FIELD_VALID, &a},
                                    {0, 1, &b},
                                    {1, PRESET_FIELD_VALID, &c},
                                    {1, PRESET_FIELD_VALID, &d},
                                    {0, 0, nullptr}};
  unsigned char buf[8] = {};
};
using CallOrder = PresetMakeDeathTest;

TEST_F(CallOrder, OfWholeListsAndUpToAFailure) {
  EXPECT_EQ(calls(static_cast<long long>(initPreset(list))), "1: initA initB initC initD ");
  EXPECT_EQ(calls(resetPreset(list)),
            "0: resetA resetC resetD commitA commitC commitD endA endC endD ");
  EXPECT_EQ(calls(createPreset(buf, 8, 1, list)), "1: setA setC setD ");
  EXPECT_EQ(calls(applyPreset(nullptr, 0, 0, list)),
            "0: commitA endA commitB endB commitC endC commitD endD ");
  c.resetResult = 1;
  EXPECT_EQ(calls(resetPreset(list)), "1: resetA resetC endA endC ");
  c.setResult = -7;
  buf[0] = GUARD;
  EXPECT_EQ(calls(createPreset(buf, 8, 1, list)), "-7: setA setC ");
  EXPECT_EQ(buf[0], GUARD) << "a version in front of a partial stream";
  EXPECT_EQ(calls(createPreset(buf, 1, 2, list)), "-1: ");
  b.commitResult = 5;
  EXPECT_EQ(calls(applyPreset(buf, 8, 1, list)), "-1: commitA endA commitB ");
}

TEST_F(PresetMakeDeathTest, FaultsOfTheApplicationsTables) {
  const verPresetField_t bad[] = {{0, 1, &a}, {3, 3, &a}, {0, 0, nullptr}};
  const char* const failure =
      "Row 1, counted from 0, of the preset list:\n"
      "Assertion failed: presetVersion(row.ver) < presetVersion(row.remove)";
  EXPECT_FATAL(initPreset(bad), failure);
  EXPECT_FATAL(createPreset(buf, 8, 1, bad), failure);
  EXPECT_FATAL(initPreset(nullptr), "list != nullptr");
  EXPECT_FATAL(resetPreset(nullptr), "list != nullptr");
  EXPECT_FATAL(applyPreset(buf, 8, 1, nullptr), "list != nullptr");
  EXPECT_FATAL(presetListVersion(nullptr), "list != nullptr");
  EXPECT_FATAL(createPreset(buf, 8, 1, nullptr), "list != nullptr");
  EXPECT_FATAL(createPreset(nullptr, 8, 1, list), "buf != nullptr");
  EXPECT_FATAL(createPreset(buf, 8, 0, list), "verSize");
  EXPECT_FATAL(createPreset(buf, 8, 5, list), "verSize");

  int glob = 300;
  char text[4];
  RefreshMgr group;
  const bounds_t touching[] = {{0, 5}, {5, 400}, BOUNDS_END};
  ReadWriteVarMgrSimpleInt value(glob, group, 0, touching, RANGE_CLIP);
  ReadWriteVarMgrSimpleStr name(group, nullptr, text, sizeof text, nullptr, nullptr);
  void* p = buf;
  unsigned int bit = BYTE_MSBIT;
  PresetFieldVarInt narrow(value, 8, nullptr, false);
  EXPECT_FATAL(narrow.set(&p, 64, bit), "signMask");
  EXPECT_FATAL(PresetFieldVarInt(value, 33, nullptr, false), "nb <= UNSIGNED_BITS");
  EXPECT_FATAL(PresetFieldVarInt(value).init(), "row.min > lower.max");
  using Str = PresetFieldVarStr;
  EXPECT_FATAL(Str(name, text, 3, Str::MODE_MANUAL).init(), "size > svar.maxlen()");
  EXPECT_FATAL(Str(name, text, 4, Str::MODE_AUTO).init(), "b != nullptr && nb > 0");
  Str brief(name, text, 3, Str::MODE_MANUAL);
  EXPECT_FATAL(brief.get(&p, 64, bit), "size > len");
  EXPECT_FATAL(Str(name, nullptr, 4, Str::MODE_MANUAL), "s != nullptr");
  EXPECT_EQ(Str(name, text, 4, Str::MODE_MANUAL).get(&p, 3, bit), -1) << "no room for a character";
}

// Numbers that no image of the random lists holds.
TEST(PresetFieldValues, AreClampedToTheBounds) {
  const bounds_t rows[] = {{0, 10}, {20, 30}, BOUNDS_END};
  const bounds_t wide[] = {{-2000000000, 2000000000}, BOUNDS_END};
  EXPECT_EQ(getPresetParm(25, rows, 2), 30);
  EXPECT_EQ(getPresetParm(-1, rows, 2), 0);
  EXPECT_EQ(getPresetParm(-1, wide, 1), 2000000000);
  EXPECT_EQ(getPresetParm(static_cast<int>(4000000000U), wide, 1), 2000000000);
  EXPECT_EQ(getPresetField(1, rows, 0) + getPresetParm(2, rows, 0), 3);
  EXPECT_EQ(getPresetField(4, nullptr, 2) + getPresetParm(5, nullptr, 2), 9);
  EXPECT_FATAL(getPresetField(-1, rows, 2), "bounds[0].min <= val");
  EXPECT_FATAL(getPresetField(31, rows, 2), "val <= bounds[numBounds - 1].max");
  EXPECT_EQ(getPresetFieldNumBits(nullptr, 2, 17, 1), 17U);
  EXPECT_EQ(getPresetFieldNumBits(rows, 0, 17, 1), 17U);
  EXPECT_EQ(getPresetFieldNumBits(rows, 2, 17, 11), 6U);
}

// What a manual field makes of numbers beyond its width, and the results of get by itself.
TEST(PresetFieldVarInt, SignsConversionsAndRefusals) {
  int glob = 0;
  RefreshMgr group;
  Watched<ReadWriteVarMgrSimpleInt> var(glob, group, 0, nullptr, RANGE_CLIP);
  PresetFieldVarInt byte(var, 8, conv8BitUint, true);
  unsigned char buf[] = {0x80, 0x7F};
  void* p = buf;
  unsigned int bit = BYTE_MSBIT;
  for (const int value : {128, 127}) {
    ASSERT_EQ(byte.get(&p, 8, bit), 8);
    EXPECT_EQ(var.get(), value);
  }
  for (const int value : {-256, 255, -1}) {
    p = buf;
    glob = value;
    group.setRefresh();
    ASSERT_EQ(byte.set(&p, 8, bit), 8);
    EXPECT_EQ(buf[0], value & 0xFF);
  }
  p = buf;
  EXPECT_EQ(byte.get(&p, 7, bit), -1);
  EXPECT_EQ(p, buf);
  var.watch.refuse = true;
  var.disturb(42);
  EXPECT_EQ(byte.get(&p, 8, bit), -2);
  EXPECT_EQ(p, buf + 1);
  EXPECT_EQ(byte.reset(), 1);
  EXPECT_EQ(var.get(), 42);
  var.watch.judge = inconsistent;
  EXPECT_EQ(byte.commit(), 1);
  EXPECT_EQ(glob, -1) << "published although inconsistent";
}

}  // namespace
