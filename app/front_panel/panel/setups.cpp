#include "setups.h"

#include <cstring>
#include <vector>

#include "console.h"
#include "device.h"
#include "devicetext.h"
#include "presetmgr.h"
#include "presets.h"
#include "store.h"

namespace {

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
  const bool read = device::parseNumber(args, which.number);
  if (!read || std::strchr(" \t", *args) == nullptr || which.number > LAST_USER_SETUP) {
    return complain("a user setup has a number from 0 to %u", LAST_USER_SETUP);
  }
  device::skipBlanks(args);
  which.user = true;
  return true;
}

// False, with the reason, when a preset of an older panel has the place of the setup.
bool placeIsFree(const Which& which) {
  const unsigned int type = which.user ? which.number + 1 : 0;
  if (!storeHoldsText(type)) {
    return true;
  }
  return complain(
      "preset %u of an older panel has the place of %s; remove it, or make room and start again",
      type, which.name().c_str());
}

// A setup is about settings in effect: what waits for confirm would get mixed up with it.
bool nothingWaits() {
  const unsigned int waiting = controls.waiting();
  return waiting == 0 || complain("confirm or cancel first: %u set, not in effect", waiting);
}

bool save(const char* args) {
  Which which;
  if (!parseWhich(args, which) || !parseEnd(args) || !nothingWaits() || !placeIsFree(which)) {
    return false;
  }
  switch (which.user ? saveUserSetup(which.number) : saveSetup()) {
    case 0:
      say("%s is saved; the store file follows after 20 s of quiet, or with \"preset flush\"",
          which.name().c_str());
      return true;
    case 1:
      return complain("the store is full: it has %u presets and setups", NUM_PRESETS);
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
  if (!parseEnd(args) || !nothingWaits() || !placeIsFree(which)) {
    return false;
  }
  const recall_t result =
      which.user ? setupList.recallUser(which.number, newer) : setupList.recall(newer);
  if (result != RECALL_OK) {
    return complain("%s: %s; no setting has changed", which.name().c_str(), recallText(result));
  }
  say("%s is in effect", which.name().c_str());
  return true;
}

bool listAll(const char*) {
  const bool setup = PresetMgr::nextType(-1) == 0 && !storeHoldsText(0);
  std::vector<unsigned int> users;
  for (int type = PresetMgr::nextType(0); type >= 0; type = PresetMgr::nextType(type)) {
    const unsigned int number = static_cast<unsigned int>(type) - 1;
    if (number <= LAST_USER_SETUP && !storeHoldsText(number + 1)) {
      users.push_back(number);
    }
  }
  say("the setup is %ssaved; %zu user %s", setup ? "" : "not ", users.size(),
      users.size() == 1 ? "setup" : "setups");
  for (const unsigned int number : users) {
    say("  user setup %u", number);
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
  if (!placeIsFree(which)) {
    return false;
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
