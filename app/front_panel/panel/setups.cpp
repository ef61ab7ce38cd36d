#include "setups.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "console.h"
#include "device.h"
#include "names.h"
#include "presetmgr.h"
#include "presets.h"
#include "presetvarfill.h"
#include "presetvarmgr.h"
#include "saving.h"

namespace {

constexpr unsigned int LAST_USER_SETUP = 0x1FFE;

// The fields of a setup. Each automatic one is as wide as the bounds of its variable need.

struct ChannelFields {
  explicit ChannelFields(unsigned int c)
      : gain{PresetFieldVarInt(gains[c][0].var), PresetFieldVarInt(gains[c][1].var),
             PresetFieldVarInt(gains[c][2].var)},
        mute(mutes[c].var),
        input(inputs[c].var) {}
  PresetFieldVarInt gain[BANDS];
  PresetFieldVarInt mute;
  PresetFieldVarInt input;
};

struct Fields {
  ChannelFields channel[CHANNELS] = {ChannelFields(0), ChannelFields(1), ChannelFields(2),
                                     ChannelFields(3)};
  PresetFieldFill contrast{false, 4};
  unsigned char scratch[NAME_SIZE];
  PresetFieldVarStr name{unitName.var, scratch, sizeof scratch, PresetFieldVarStr::MODE_AUTO};
};

// The list and its history. A row is never taken away and never moves: what a setup does not hold
// any more gets the version that dropped it, what is new comes last with the next version.
//
//   version 0  gains, mutes and inputs, and the contrast of the display
//   version 1  the contrast is no longer part of a setup, and its variable is gone: a fill holds
//              the place of its 4 bits in older images. The name has come in
constexpr unsigned int ROWS = CHANNELS * (BANDS + 2) + 2;
verPresetField_t list[ROWS + 1];

void makeList() {
  static Fields fields;
  verPresetField_t* row = list;
  for (ChannelFields& channel : fields.channel) {
    for (PresetFieldVarInt& gain : channel.gain) {
      *row++ = {0, PRESET_FIELD_VALID, &gain};
    }
    *row++ = {0, PRESET_FIELD_VALID, &channel.mute};
    *row++ = {0, PRESET_FIELD_VALID, &channel.input};
  }
  *row++ = {0, 1, &fields.contrast};
  *row++ = {1, PRESET_FIELD_VALID, &fields.name};
  *row = {0, 0, nullptr};
}

// Which setup a command is about.
struct Which {
  bool user = false;  // else the one without a number
  unsigned int number = 0;
  std::string name() const {
    return user ? "user setup " + std::to_string(number) : std::string("the setup");
  }
};

// Reads a number from the front of `args`, if one stands there.
bool parseWhich(const char*& args, Which& which) {
  if (*args < '0' || *args > '9') {
    return true;
  }
  char* end;
  const unsigned long number = std::strtoul(args, &end, 10);
  if ((*end != ' ' && *end != 0) || number > LAST_USER_SETUP) {
    return complain("a user setup has a number from 0 to %u", LAST_USER_SETUP);
  }
  args = end;
  skipBlanks(args);
  which.user = true;
  which.number = static_cast<unsigned int>(number);
  return true;
}

// A setup is about settings in effect: what waits for confirm would get mixed up with it.
bool nothingWaits() {
  return waitingSets() == 0 || complain("confirm first: %u set, not in effect", waitingSets());
}

bool save(const char* args) {
  Which which;
  if (!parseWhich(args, which) || !parseEnd(args) || !nothingWaits()) {
    return false;
  }
  switch (which.user ? saveUserSetup(which.number) : saveSetup()) {
    case 0:
      say("%s is saved; the store file follows after 20 s of quiet, or with \"preset flush\"",
          which.name().c_str());
      return true;
    case 1:
      return complain("the store is full: it has %u presets", NUM_PRESETS);
    default:
      return complain("the store has no room for %s", which.name().c_str());
  }
}

bool recall(const char* args) {
  Which which;
  if (!parseWhich(args, which)) {
    return false;
  }
  recallNewer_t newer = RECALL_KEEP_NEWER;
  if (std::strcmp(args, "init") == 0) {
    newer = RECALL_INIT_NEWER;
    args += std::strlen(args);
  }
  if (!parseEnd(args) || !nothingWaits()) {
    return false;
  }
  recall_t result;
  {
    const std::lock_guard<std::mutex> lock(settingsLock);
    result = which.user ? recallUserSetup(which.number, newer) : recallSetup(newer);
  }
  if (result != RECALL_OK) {
    return complain("%s: %s; no setting has changed", which.name().c_str(), recallText(result));
  }
  Preset::Instance()->Set_need_save();
  say("%s is in effect", which.name().c_str());
  return true;
}

bool listAll(const char*) {
  const bool setup = PresetMgr::nextType(-1) == 0;
  unsigned int users[NUM_PRESETS];
  const unsigned int count = listUserSetups(users, NUM_PRESETS);
  say("the setup is %ssaved; %u user %s", setup ? "" : "not ", count,
      count == 1 ? "setup" : "setups");
  for (unsigned int i = 0; i < count; ++i) {
    say("  user setup %u", users[i]);
  }
  return true;
}

bool remove(const char* args) {
  Which which;
  if (!parseWhich(args, which) || !parseEnd(args)) {
    return false;
  }
  if (!which.user) {
    return complain("which user setup? \"setup list\" shows all");
  }
  switch (removeUserSetup(which.number)) {
    case ERR_OK:
      say("%s is removed", which.name().c_str());
      return true;
    case ERR_NOT_FOUND:
      return complain("%s: nothing is saved there", which.name().c_str());
    default:
      return complain("%s: the record is in use", which.name().c_str());
  }
}

const Command SETUP[] = {
    {"save", "[N]", "saves the channels and the name, as the setup or as user setup N", save,
     nullptr},
    {"recall", "[N] [init]",
     "brings them back as one change; init: what is not in it goes to its default", recall,
     nullptr},
    {"list", "", "what is saved", listAll, nullptr},
    {"remove", "N", "removes user setup N", remove, nullptr},
    {}};

bool setup(const char* args) {
  return runGroup("setup", SETUP, args);
}

std::vector<std::string> completeSetup(const std::string& word) {
  return completeGroup(SETUP, word);
}

}  // namespace

const Command SETUP_COMMANDS[] = {
    {"setup", "[COMMAND]", "all channels and the name as a whole: save, recall, list, remove",
     setup, completeSetup},
    {}};

void setupStart() {
  makeList();
  initPresets(list);
}
