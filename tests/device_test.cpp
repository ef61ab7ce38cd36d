// Devices told once: what waits, what is told, and the mistakes that are told at the start.
#include "devicesetups.h"
#include "fatal.h"
#include "presets.h"

namespace {

using namespace device;

int level, spare;
char title[6];
std::string told;
Controls* panel = nullptr;

void note(const Change& c) {
  told += std::to_string(c.before) + ">" + std::to_string(c.now) + " ";
}
void clear(const Control&, int) {
  panel->reset();
}

const bounds_t GAPPED[] = {{0, 10}, {20, 30}, BOUNDS_END};
const bounds_t LOWEST[] = {{-2147483647 - 1, -2147483647 - 1}, BOUNDS_END};
const bounds_t REVERSED[] = {{0, 10}, {30, 20}, BOUNDS_END};
const bounds_t OVERLAPPING[] = {{0, 10}, {5, 20}, BOUNDS_END};

TEST(Device, DropsWhatIsTakenBackAndKeepsWhatStandsBehindACommand) {
  Integers<> levels(1, "level", level, GAPPED, RANGE_CLIP, 5);
  Texts titles(2, "title", title, ReadWriteVarMgrStr::BOUNDS_PRINTABLE, "old");
  Commands<> reset(3, "reset", clear);
  Device dev(levels, titles, reset);
  panel = &dev;
  dev.onChange(note);
  dev.start();
  const unsigned int bits[] = {5 + 35};
  Setups setups(dev, bits, In(levels, 0), In(titles, 0));
  setups.start();
  const Control l = dev.find("level"), t = dev.find("title");
  EXPECT_EQ(dev.set({}, 5), CTRL_ERR_PARAM);
  EXPECT_EQ(dev.set(l, 15), CTRL_ERR_PARAM);

  // Also behind a direct ctrlDoCancel, and where the working copies are published as they are.
  for (const bool direct : {false, true}) {
    EXPECT_EQ(dev.set(l, 30), CTRL_ERR_SUCCESS);
    EXPECT_EQ(dev.set(t, "new"), CTRL_ERR_SUCCESS);
    EXPECT_EQ(dev.get(l), 30);
    EXPECT_EQ(direct ? ctrlDoCancel() : dev.cancel(), 2U);
    if (!direct) {
      loadUserSetup(0);
    }
    EXPECT_EQ(dev.get(l), 5);
    EXPECT_EQ(level, 5);
    EXPECT_STREQ(title, "old");
  }
  // By number a control has two places, with a reset between them.
  unsigned char value[4] = {0, 0, 0, 7}, one[4] = {0, 0, 0, 1};
  ctrlDoValidateSet(1, 0, value, 4);
  ctrlDoValidateSet(3, 0, one, 4);
  ctrlDoValidateSet(1, 0, value, 4);
  EXPECT_EQ(dev.confirm(), 3U);
  EXPECT_EQ(level, 7);
  level = 8;
  dev.changed();
  EXPECT_EQ(dev.get(l), 8);
  EXPECT_EQ(told, "5>7 7>8 ");
  EXPECT_FATAL(dev.onChange(note), "!started");
}

template <class F>
void start(F& family) {
  Device dev(family);
  dev.start();
}
void startNumber(const bounds_t* bounds, const char* name = "level", int initial = 0) {
  Integers<> f(1, name, level, bounds, RANGE_CLIP, initial);
  start(f);
}
void startChoice(const Choice (&names)[2]) {
  Choices<int, 2> f(1, "mode", level, names, 1);
  start(f);
}

TEST(Device, TellsTheMistakeAtTheStart) {
  EXPECT_FATAL(startNumber(LOWEST), "BOUNDS_END cannot close");
  EXPECT_FATAL(startNumber(REVERSED), "\"level\", id 1: a bounds row is reversed");
  EXPECT_FATAL(startNumber(OVERLAPPING), "overlap");
  EXPECT_FATAL(startNumber(GAPPED, nullptr), "name cannot be typed");
  EXPECT_FATAL(startNumber(GAPPED, "level", 15), "index 0: its initial value is outside");
  static const Choice falling[] = {{2, "two"}, {1, "one"}}, nameless[] = {{1, "one"}, {2, nullptr}};
  EXPECT_FATAL(startChoice(falling), "its named values do not rise");
  EXPECT_FATAL(startChoice(nameless), "a name of its values cannot be typed");
  EXPECT_FATAL(
      {
        Readings<> f(1, "reading", static_cast<ReadFn>(nullptr));
        start(f);
      },
      "it has no function");
  EXPECT_FATAL(
      {
        Integers<> other(2, "spare", spare, nullptr, RANGE_CLIP, 0);
        startNumber(GAPPED);
      },
      "\"spare\", id 2: it is declared and not in the device");
}

}  // namespace
