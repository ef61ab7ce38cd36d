#include "device.h"

#include <algorithm>
#include <iterator>

#include "avltree.h"
#include "tessel_timer.h"

// The settings, and the variables on them.

constexpr Settings DEFAULTS = {"Unit 1", {}, {}, {1, 2, 3, 4}, 60};
Settings settings = DEFAULTS;
RefreshMgr settingsGroup;

namespace {

// Between off and -60 dB there is nothing that the hardware can do.
const bounds_t GAIN_BOUNDS[] = {{GAIN_OFF, GAIN_OFF}, {-60, 12}, BOUNDS_END};
const bounds_t INPUT_BOUNDS[] = {{1, INPUTS}, BOUNDS_END};
const bounds_t LIMIT_BOUNDS[] = {{30, 90}, BOUNDS_END};
const bounds_t RESTORE_BOUNDS[] = {{1, 1}, BOUNDS_END};

// The families: dimensions, the flag that lets the first member register the family, and the array
// of members. A scalar has no dimensions and one member.

const unsigned int GAIN_DIM[] = {CHANNELS, BANDS};
const unsigned int CHANNEL_DIM[] = {CHANNELS};

bool nameFirst = true;
bool gainFirst = true;
bool muteFirst = true;
bool inputFirst = true;
bool limitFirst = true;
bool temperatureFirst = true;
bool restoreFirst = true;

CtrlReadWrite* nameMember[1];
CtrlReadWrite* gainMembers[CHANNELS * BANDS];
CtrlReadWrite* muteMembers[CHANNELS];
CtrlReadWrite* inputMembers[CHANNELS];
CtrlReadWrite* limitMember[1];
CtrlRead* temperatureMembers[CHANNELS];
CtrlReadWrite* restoreMember[1];

}  // namespace

UnitName::UnitName()
    : var(settingsGroup, settings.name, working, sizeof working,
          ReadWriteVarMgrStr::BOUNDS_PRINTABLE, DEFAULTS.name),
      entry(ID_NAME, 0, var, nameFirst, nameMember, 1, nullptr, 0, nullptr),
      saved(entry, settings.name, settingsLock) {}

// The index of a two-dimensional control: first subscript in bits 0 to 7, second in bits 8 to 15.
Gain::Gain(unsigned int channel, unsigned int band)
    : var(settings.gain[channel][band], settingsGroup, DEFAULTS.gain[channel][band], GAIN_BOUNDS,
          RANGE_CLIP),
      entry(ID_GAIN, channel | band << 8, var, gainFirst, gainMembers, CHANNELS * BANDS, GAIN_DIM,
            2, nullptr),
      saved(entry, settings.gain[channel][band], settingsLock) {}

Mute::Mute(unsigned int channel)
    : var(settings.mute[channel], settingsGroup, ReadWriteVarMgrBool::OFF, RANGE_WRAP),
      entry(ID_MUTE, channel, var, muteFirst, muteMembers, CHANNELS, CHANNEL_DIM, 1, nullptr),
      saved(entry, settings.mute[channel], settingsLock) {}

Input::Input(unsigned int channel)
    : var(settings.input[channel], settingsGroup, DEFAULTS.input[channel], INPUT_BOUNDS,
          RANGE_WRAP),
      entry(ID_INPUT, channel, var, inputFirst, inputMembers, CHANNELS, CHANNEL_DIM, 1, nullptr),
      saved(entry, settings.input[channel], settingsLock) {}

Limit::Limit()
    : var(settings.limit, settingsGroup, DEFAULTS.limit, LIMIT_BOUNDS, RANGE_CLIP),
      entry(ID_LIMIT, 0, var, limitFirst, limitMember, 1, nullptr, 0, nullptr),
      saved(entry, settings.limit, settingsLock) {}

Temperature::Temperature(unsigned int channel)
    : entry(ID_TEMPERATURE, channel, var, temperatureFirst, temperatureMembers, CHANNELS,
            CHANNEL_DIM, 1, nullptr) {}

RestoreCommand::RestoreCommand()
    : SimpleCtrlCmd(ID_RESTORE, 0, RESTORE_BOUNDS, restoreFirst, restoreMember, 1, nullptr, 0,
                    nullptr, RANGE_CLIP) {}

// Writes the settings and leaves the working copies alone, so that a setting that stands behind
// this command in one request keeps its new value. The others follow when they next look.
int RestoreCommand::confirm() {
  settings = DEFAULTS;
  settingsGroup.setRefresh();
  return 0;
}

UnitName unitName;
Gain gains[CHANNELS][BANDS] = {{{0, 0}, {0, 1}, {0, 2}},
                               {{1, 0}, {1, 1}, {1, 2}},
                               {{2, 0}, {2, 1}, {2, 2}},
                               {{3, 0}, {3, 1}, {3, 2}}};
Mute mutes[CHANNELS] = {Mute(0), Mute(1), Mute(2), Mute(3)};
Input inputs[CHANNELS] = {Input(0), Input(1), Input(2), Input(3)};
Limit limit;
Temperature temperatures[CHANNELS] = {Temperature(0), Temperature(1), Temperature(2),
                                      Temperature(3)};
RestoreCommand restoreCommand;

// A row of the table is two lines.
// clang-format off
const Family FAMILIES[] = {
    {"name", ID_NAME, 0, {}, READ_WRITE, DATA_TYPE_STRING, ReadWriteVarMgrStr::BOUNDS_PRINTABLE,
     RANGE_CLIP, NAME_SIZE - 1, "", "what the unit is called"},
    {"gain", ID_GAIN, 2, {CHANNELS, BANDS}, READ_WRITE, DATA_TYPE_INT, GAIN_BOUNDS,
     RANGE_CLIP, 0, " dB", "gain of a channel in a band, -100 is off"},
    {"mute", ID_MUTE, 1, {CHANNELS}, READ_WRITE, DATA_TYPE_BOOL, ReadWriteVarMgrBool::BOUNDS,
     RANGE_WRAP, 0, "", "silences a channel"},
    {"input", ID_INPUT, 1, {CHANNELS}, READ_WRITE, DATA_TYPE_INT, INPUT_BOUNDS,
     RANGE_WRAP, 0, "", "input that a channel takes, a step past the end wraps"},
    {"limit", ID_LIMIT, 0, {}, READ_WRITE, DATA_TYPE_INT, LIMIT_BOUNDS,
     RANGE_CLIP, 0, " C", "temperature above which a channel raises an alarm"},
    {"temperature", ID_TEMPERATURE, 1, {CHANNELS}, READ_ONLY, DATA_TYPE_INT, nullptr,
     RANGE_CLIP, 0, " C", "of a channel's amplifier"},
    {"restore", ID_RESTORE, 0, {}, COMMAND, DATA_TYPE_INT, RESTORE_BOUNDS,
     RANGE_CLIP, 0, "", "set to 1: all settings back to default"},
    {}};
// clang-format on

// The registry: a pool for each tree, with one slot per family, and the confirm queue, whose size
// is the number of sets that may wait for one confirm.

namespace {

constexpr unsigned int RW_FAMILIES = 6;
constexpr unsigned int READ_FAMILIES = 1;
constexpr unsigned int CONFIRM_SIZE = 16;

alignas(4) char rwPool[RW_FAMILIES * (AVLTree::NODE_SIZE + sizeof(ReadWriteNode))];
alignas(4) char readPool[READ_FAMILIES * (AVLTree::NODE_SIZE + sizeof(ReadNode))];
AVLTree rwTree(rwPool, sizeof rwPool, sizeof(ReadWriteNode));
AVLTree readTree(readPool, sizeof readPool, sizeof(ReadNode));
CtrlReadWrite* confirmQueue[CONFIRM_SIZE];

// All entries, ended by null: what the registry starts, and what the preset file holds.
constexpr unsigned int SETTINGS = 1 + CHANNELS * BANDS + CHANNELS + CHANNELS + 1;
CtrlReadWrite* rwEntries[SETTINGS + 2];
CtrlReadWrite* savedEntries[SETTINGS + 1];
CtrlRead* readEntries[CHANNELS + 1];

template <class Control>
void collect(Control& control, CtrlReadWrite**& rw, CtrlReadWrite**& saved) {
  *rw++ = &control.entry;
  *saved++ = &control.saved;
}

}  // namespace

void deviceInit() {
  CtrlReadWrite** rw = rwEntries;
  CtrlReadWrite** saved = savedEntries;
  collect(unitName, rw, saved);
  for (auto& channel : gains) {
    for (Gain& gain : channel) {
      collect(gain, rw, saved);
    }
  }
  for (Mute& mute : mutes) {
    collect(mute, rw, saved);
  }
  for (Input& input : inputs) {
    collect(input, rw, saved);
  }
  collect(limit, rw, saved);
  *rw = &restoreCommand;
  std::transform(std::begin(temperatures), std::end(temperatures), readEntries,
                 [](Temperature& t) { return &t.entry; });
  ctrl_sys_init(&rwTree, &readTree, rwEntries, readEntries, confirmQueue, CONFIRM_SIZE, nullptr, 0,
                nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}

CtrlReadWrite** savedControls() {
  return savedEntries;
}

void driftTemperatures() {
  static Timer second(false);
  static unsigned int seed = 1;
  if (!second.isTimeoutExpired()) {
    return;
  }
  second.setTimeout(1000);
  for (Temperature& t : temperatures) {
    seed = seed * 1103515245U + 12345U;
    const int step = static_cast<int>(seed >> 16) % 3 - 1;
    t.var.degrees = std::clamp(t.var.degrees + step, 25, 75);
  }
}
