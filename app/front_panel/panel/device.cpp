// The device: a four-channel signal processor, each fact of it told once.
//
// This is what an application of the control library consists of, and the page to copy for a device
// of your own. A control that is added is one declaration, and its name in the Device. The ids are
// part of the preset file's keys: never reuse one for something else.
#include "device.h"

#include <algorithm>

#include "tessel_timer.h"

using namespace device;

namespace {

// The confirmed values: what the signal path of a real device works with.

constexpr unsigned int CHANNELS = 4, BANDS = 3;

char name[25];              // 24 characters
int gain[CHANNELS][BANDS];  // dB
int mute[CHANNELS];
int input[CHANNELS];
int limit;  // degrees Celsius
int filter[CHANNELS];

// What the device measures.
int temperature[CHANNELS] = {40, 40, 40, 40};

// The controls on them. Between off and -60 dB there is nothing that the hardware can do.

constexpr int GAIN_OFF = -100;
const bounds_t GAIN[] = {{GAIN_OFF, GAIN_OFF}, {-60, 12}, BOUNDS_END};
const bounds_t INPUT[] = {{1, 8}, BOUNDS_END};
const bounds_t LIMIT[] = {{30, 90}, BOUNDS_END};
const Choice FILTER[] = {{0, "flat"}, {1, "low-cut"}, {2, "speech"}};
const int FIRST_INPUT[CHANNELS] = {1, 2, 3, 4};

Texts names(10, "name", name, ReadWriteVarMgrStr::BOUNDS_PRINTABLE, "Unit 1",
            "what the unit is called");
Integers gains(20, "gain", gain, GAIN, RANGE_CLIP, 0, "dB",
               "gain of a channel in a band, -100 is off");
Booleans mutes(30, "mute", mute, 0, "silences a channel");
Integers inputs(40, "input", input, INPUT, RANGE_WRAP, FIRST_INPUT, "",
                "input that a channel takes, a step past the end wraps");
Integers limits(70, "limit", limit, LIMIT, RANGE_CLIP, 60, "C",
                "temperature above which a channel raises an alarm");
Readings temperatures(50, "temperature", temperature, "C", "of a channel's amplifier");
Commands restore(
    60, "restore", [](const Control&, int) { controls.reset(); },
    "set to 1: all settings back to default");
Choices filters(80, "filter", filter, FILTER, 0, "what a channel lets through");

Device panel(names, gains, mutes, inputs, limits, temperatures, restore, filters);
PresetFile presetFile(panel);

// What a setup holds. A row is never taken away and never moves: what a setup does not hold any
// more gets the version that dropped it, what is new comes last with the next version.
//
//   version 0  gains, mutes and inputs, channel by channel, and the contrast of the display
//   version 1  without the contrast, and its variable is gone; with the name
//   version 2  with the filters
const unsigned int SETUP_BITS[] = {104, 268, 276};
Setups setups(panel, SETUP_BITS, In(gains, 0), In(mutes, 0).beside(), In(inputs, 0).beside(),
              Dropped(4, 0, 1), In(names, 1), In(filters, 2));

// What the management side is told of.
Watch tooHot(
    temperatures, [](const Control&, int degrees) { return degrees > limit; }, "too hot");
Watch muted(mutes, nullptr, "on");
Watch switchedOff(
    gains, [](const Control&, int dB) { return dB == GAIN_OFF; }, "off");
Traps traps(tooHot, muted, switchedOff);

}  // namespace

Controls& controls = panel;
SettingsFile& xmlFile = presetFile;
SetupList& setupList = setups;
TrapTable& trapTable = traps;

void driftTemperatures() {
  static Timer second(false);
  static unsigned int seed = 1;
  if (!second.isTimeoutExpired()) {
    return;
  }
  second.setTimeout(1000);
  for (int& degrees : temperature) {
    seed = seed * 1103515245U + 12345U;
    degrees = std::clamp(degrees + static_cast<int>(seed >> 16) % 3 - 1, 25, 75);
  }
}
