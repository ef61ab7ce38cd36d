#include "commands.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "console.h"
#include "ctrlsys.h"
#include "device.h"
#include "names.h"
#include "saving.h"

namespace {

std::string unitOf(const Address& control) {
  return control.family == nullptr ? "" : control.family->unit;
}

bool noSuchControl(const Address& control) {
  return complain("no control %s; \"list\" shows all", controlName(control).c_str());
}

// The value of a control with its unit, and the confirmed one if that is another.
bool describe(const Address& control, std::string& text) {
  if (!readValue(control, text)) {
    return false;
  }
  std::string confirmed;
  if (confirmedValue(control, confirmed) && confirmed != text) {
    text += unitOf(control) + ", not confirmed; in effect is " + confirmed;
  }
  text += unitOf(control);
  return true;
}

bool show(const Address& control) {
  std::string value;
  if (!describe(control, value)) {
    return noSuchControl(control);
  }
  say("%s = %s", controlName(control).c_str(), value.c_str());
  return true;
}

// Reads controls up to the end of the line.
bool parseAll(const char* args, std::vector<Address>& controls) {
  std::string error;
  do {
    const std::vector<Address> found = parseControls(args, error);
    if (found.empty()) {
      return complain("%s", error.c_str());
    }
    controls.insert(controls.end(), found.begin(), found.end());
    skipBlanks(args);
  } while (*args != 0);
  return true;
}

bool get(const char* args) {
  std::vector<Address> controls;
  return parseAll(args, controls) &&
         std::all_of(controls.begin(), controls.end(), [](const Address& a) { return show(a); });
}

// The values of all members of a family; those of one first subscript stand together.
std::string familyValues(const Family& family) {
  std::string values;
  unsigned int count = 0;
  for (const Address& a : members(family)) {
    std::string value;
    readValue(a, value);
    const bool group = family.ndim == 2 && count % family.dim[1] == 0;
    values += (count == 0 ? "" : group ? ", " : " ") + value;
    ++count;
  }
  return family.access == COMMAND ? "" : values;
}

bool listMembers(const Family& family) {
  say("%s: %s; %s", familyName(family).c_str(), family.about, allowedValues(family).c_str());
  for (const Address& a : members(family)) {
    std::string value;
    describe(a, value);
    const std::string numbers = std::to_string(a.id) + ":" + std::to_string(a.index);
    say("  %-16s %-8s %s", controlName(a).c_str(), numbers.c_str(), value.c_str());
  }
  return true;
}

bool list(const char* args) {
  if (*args == 0) {
    listFamilies();
    return true;
  }
  std::string error;
  const std::vector<Address> found = parseControls(args, error);
  if (found.empty()) {
    return complain("%s", error.c_str());
  }
  skipBlanks(args);
  std::string value;
  if (!parseEnd(args)) {
    return false;
  }
  return readValue(found[0], value) && found[0].family != nullptr ? listMembers(*found[0].family)
                                                                  : noSuchControl(found[0]);
}

// Hands a value to the registry and tells what became of it.
bool request(const Address& control, const std::vector<char>& value) {
  const std::string name = controlName(control);
  switch (setControl(control.id, control.index, value.data(),
                     static_cast<unsigned int>(value.size()))) {
    case CTRL_ERR_SUCCESS: {
      std::string now;
      readValue(control, now);
      if (control.family != nullptr && control.family->access == COMMAND) {
        say("%s waits for confirm", name.c_str());
      } else {
        say("%s = %s%s, waits for confirm", name.c_str(), now.c_str(), unitOf(control).c_str());
      }
      return true;
    }
    case CTRL_ERR_NOBUFFER:
      return complain("%u settings wait for confirm and no more fit; %s is not set", waitingSets(),
                      name.c_str());
    default:
      return complain("%s is not set: the registry refuses it", name.c_str());
  }
}

// What a person may change; says why not. Numbers that no family has are the registry's to refuse.
bool mayChange(const Address& control) {
  if (control.family != nullptr && control.family->access == READ_ONLY) {
    return complain("%s is read only", controlName(control).c_str());
  }
  return true;
}

// A value that the control would refuse is caught here, where the message can name what is
// allowed; the registry checks it again.
bool isAllowed(const Address& control, const std::vector<char>& value) {
  const Family& family = *control.family;
  const unsigned int size = static_cast<unsigned int>(value.size());
  if (family.type == DATA_TYPE_STRING) {
    return size - 1 <= family.maxText &&
           std::all_of(value.begin(), value.end() - 1, [&family](char c) {
             const int v = static_cast<unsigned char>(c);
             return getBoundsVal(v, true, RANGE_CLIP, family.bounds,
                                 calcNumBounds(family.bounds)) == v;
           });
  }
  const int v = ReadWriteVarMgr::convert(value.data(), size);
  return getBoundsVal(v, true, RANGE_CLIP, family.bounds, calcNumBounds(family.bounds)) == v;
}

bool set(const char* args) {
  Address control;
  std::string error;
  if (!parseControl(args, control, error)) {
    return complain("%s", error.c_str());
  }
  const bool apart = *args == ' ' || *args == '\t';
  skipBlanks(args);
  if (!mayChange(control)) {
    return false;
  }
  const std::string name = controlName(control);
  const CTRL_DATA_TYPE type = control.family == nullptr ? DATA_TYPE_INT : control.family->type;
  const std::string allowed =
      control.family == nullptr ? "a number" : allowedValues(*control.family);
  if (!apart && !parseEnd(args)) {
    return false;
  }
  if (*args == 0) {
    return complain("%s takes a value: %s", name.c_str(), allowed.c_str());
  }
  std::vector<char> value;
  if (!parseValue(args, type, value) || (control.family != nullptr && !isAllowed(control, value))) {
    return complain("%s cannot be %s; it takes %s", name.c_str(), args, allowed.c_str());
  }
  return request(control, value);
}

bool parseInt(const char*& args, int& number) {
  char* end;
  const long long value = std::strtoll(args, &end, 10);
  if (end == args || value < INT_MIN || value > INT_MAX) {
    return false;
  }
  args = end;
  number = static_cast<int>(value);
  return true;
}

bool inc(const char* args) {
  Address control;
  std::string error;
  if (!parseControl(args, control, error)) {
    return complain("%s", error.c_str());
  }
  if (!mayChange(control)) {
    return false;
  }
  const Family* const family = control.family;
  if (family == nullptr) {
    return noSuchControl(control);
  }
  if (family->type == DATA_TYPE_STRING || family->access == COMMAND) {
    return complain("%s is no number", controlName(control).c_str());
  }
  skipBlanks(args);
  const char* const step = args;
  int delta = 1;
  if (*args != 0 && (!parseInt(args, delta) || *args != 0)) {
    return complain("a step is a whole number, not %s", step);
  }
  std::vector<char> value(4);
  if (ctrlDoGet(control.id, control.index, 4, value.data()) != CTRL_ERR_SUCCESS) {
    return noSuchControl(control);
  }
  const long long sum = static_cast<long long>(ReadWriteVarMgr::convert(value.data(), 4)) + delta;
  const int limited = static_cast<int>(std::clamp<long long>(sum, INT_MIN, INT_MAX));
  const int stepped = getBoundsVal(limited, delta >= 0, family->overflow, family->bounds,
                                   calcNumBounds(family->bounds));
  ReadVarMgr::setBufInt(value.data(), 4, stepped);
  return request(control, value);
}

bool confirm(const char*) {
  const unsigned int count = confirmSettings();
  if (count == 0) {
    return complain("nothing waits for confirm");
  }
  say("%u %s confirmed; saved within about 10 seconds, or now with \"save\"", count,
      count == 1 ? "setting" : "settings");
  return true;
}

bool save(const char*) {
  if (!saveSettings()) {
    return complain("the confirmed settings are not saved");
  }
  say("saved; %s", waitingSets() == 0 ? "nothing waits for confirm"
                                      : "what waits for confirm is not in the file");
  return true;
}

// Reads a number of seconds from the front of `args`, if one stands there.
bool parseSeconds(const char*& args, unsigned int& seconds) {
  constexpr unsigned int MOST = 24 * 3600;
  const std::size_t digits = std::strspn(args, "0123456789");
  if (digits == 0 || std::strchr(" \t", args[digits]) == nullptr) {
    return true;
  }
  const unsigned long number = std::strtoul(args, nullptr, 10);
  if (number > MOST) {
    return complain("%.*s s is too long, %u at most", static_cast<int>(digits), args, MOST);
  }
  seconds = static_cast<unsigned int>(number);
  args += digits;
  skipBlanks(args);
  return true;
}

bool watch(const char* args) {
  constexpr unsigned int POLL_MS = 100;
  unsigned int seconds = 10;
  std::vector<Address> controls;
  if (!parseSeconds(args, seconds) || !parseAll(args, controls)) {
    return false;
  }
  if (consoleInteractive()) {
    say("watching for %u s, Enter ends it", seconds);
  }
  std::vector<std::string> shown(controls.size());
  for (unsigned int pass = 0; pass <= seconds * 1000 / POLL_MS; ++pass) {
    for (std::size_t i = 0; i < controls.size(); ++i) {
      std::string now;
      if (!describe(controls[i], now)) {
        return noSuchControl(controls[i]);
      }
      if (now != shown[i]) {
        say("%s = %s", controlName(controls[i]).c_str(), now.c_str());
        shown[i] = now;
      }
    }
    if (!consolePause(POLL_MS)) {
      break;
    }
  }
  return true;
}

bool wait(const char* args) {
  unsigned int seconds = 1;
  if (!parseSeconds(args, seconds) || !parseEnd(args)) {
    return false;
  }
  consolePause(seconds * 1000);
  return true;
}

bool help(const char* args) {
  bool found = false;
  for (const Command* const* table = COMMAND_TABLES; *table != nullptr; ++table) {
    for (const Command* c = *table; c->name != nullptr; ++c) {
      if (*args == 0 || std::strcmp(args, c->name) == 0) {
        say("%-26s  %s", (std::string(c->name) + " " + c->usage).c_str(), c->help);
        found = true;
      }
    }
  }
  if (!found) {
    return complain("no command \"%s\"; \"help\" shows all", args);
  }
  if (*args == 0) {
    say("A control is gain[2][1], or gain 2 1, or by its numbers 20:258. For get, list and watch");
    say("a part is enough: gain 2, or gain. Lines without the mark \"" MARK
        "\" are the library's.");
  }
  return true;
}

bool quit(const char* args) {
  const bool now = std::strcmp(args, "now") == 0;
  if (!now && !parseEnd(args)) {
    return false;
  }
  if (unsavedSettings() && !saveSettings() && !now) {
    return complain("the confirmed settings are not saved; \"quit now\" ends without them");
  }
  consoleQuit();
  return true;
}

std::vector<std::string> completeName(const std::string& word) {
  std::vector<std::string> found;
  for (const Command* const* table = COMMAND_TABLES; *table != nullptr; ++table) {
    const std::vector<std::string> more = completeGroup(*table, word);
    found.insert(found.end(), more.begin(), more.end());
  }
  return found;
}

const Command* findIn(const Command* table, const std::string& name) {
  while (table->name != nullptr && name != table->name) {
    ++table;
  }
  return table->name == nullptr ? nullptr : table;
}

const Command* findCommand(const std::string& name) {
  const Command* found = nullptr;
  for (const Command* const* table = COMMAND_TABLES; *table != nullptr && !found; ++table) {
    found = findIn(*table, name);
  }
  return found;
}

bool carryOut(const Command& command, const char* args) {
  skipBlanks(args);
  return (*command.usage != 0 || parseEnd(args)) && command.run(args);
}

}  // namespace

const Command CONTROL_COMMANDS[] = {
    {"list", "[CONTROL]", "all controls, or the members of a family", list, completeControl},
    {"get", "CONTROL...", "values now", get, completeControl},
    {"set", "CONTROL VALUE", "checks a value and sets it, to be confirmed", set, completeControl},
    {"inc", "CONTROL [STEP]", "sets a number by a step, 1 or as given", inc, completeControl},
    {"confirm", "", "makes everything that was set take effect", confirm, nullptr},
    {"watch", "[SECONDS] CONTROL...", "shows values as they change, for 10 seconds", watch,
     completeControl},
    {"wait", "[SECONDS]", "does nothing for a while", wait, nullptr},
    {"help", "[COMMAND]", "this list", help, completeName},
    {"save", "", "saves the confirmed settings now", save, nullptr},
    {"quit", "[now]", "ends the panel; confirmed settings are saved", quit, nullptr},
    {}};

bool runCommand(const std::string& line) {
  const std::size_t first = line.find_first_not_of(" \t\r");
  if (first == std::string::npos || line[first] == '#') {
    return true;
  }
  if (line.find('\0') != std::string::npos) {
    return complain("a line with a zero byte; it is not carried out");
  }
  const std::string text = line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
  const std::string name = text.substr(0, text.find_first_of(" \t"));
  const Command* const command = findCommand(name);
  if (command == nullptr) {
    return complain("no command \"%s\"; \"help\" shows all", name.c_str());
  }
  return carryOut(*command, text.c_str() + name.size());
}

bool runGroup(const char* group, const Command* table, const char* args) {
  const std::string name(args, std::strcspn(args, " \t"));
  if (name.empty()) {
    for (; table->name != nullptr; ++table) {
      say("%s %-18s %s", group, (std::string(table->name) + " " + table->usage).c_str(),
          table->help);
    }
    return true;
  }
  const Command* const command = findIn(table, name);
  if (command == nullptr) {
    return complain("no command \"%s %s\"; \"%s\" shows all", group, name.c_str(), group);
  }
  return carryOut(*command, args + name.size());
}

std::vector<std::string> completeGroup(const Command* table, const std::string& word) {
  std::vector<std::string> found;
  for (; table->name != nullptr; ++table) {
    if (std::strncmp(table->name, word.c_str(), word.size()) == 0) {
      found.push_back(table->name);
    }
  }
  return found;
}

bool parseEnd(const char* args) {
  return *args == 0 || complain("what is %s?", args);
}

std::vector<std::string> completeCommand(const std::string& before) {
  const std::size_t first = before.find_first_not_of(" \t");
  const std::size_t word = before.find_last_of(" \t") + 1;
  if (first == std::string::npos || first == word) {
    return completeName(before.substr(word));
  }
  const Command* const command =
      findCommand(before.substr(first, before.find_first_of(" \t", first) - first));
  if (command == nullptr || command->complete == nullptr) {
    return {};
  }
  return command->complete(before.substr(word));
}

void listFamilies() {
  std::size_t width = 0;
  for (const Family* f = FAMILIES; f->name != nullptr; ++f) {
    width = std::max(width, familyValues(*f).size());
  }
  const int w = static_cast<int>(width);
  say("%-18s %3s  %-*s  %s", "control", "id", w, "now", "may be");
  for (const Family* f = FAMILIES; f->name != nullptr; ++f) {
    say("%-18s %3u  %-*s  %s", familyName(*f).c_str(), f->id, w, familyValues(*f).c_str(),
        allowedValues(*f).c_str());
  }
}
