// The commands on controls. Names, values and what is allowed are written and read by the device
// layer; here stands what a person types round them, and what is said of it.
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "device.h"
#include "devicetext.h"
#include "json.h"

namespace {

using device::Control;
using device::Family;
using device::Kind;
using device::Line;
using device::Selection;
using device::skipBlanks;

using Text = device::LineOf<2048>;  // twice the longest value, with names round it

// The value of a control with its unit, and the confirmed one if that is another.
void describe(const Control& control, Line& line) {
  Text value, confirmed;
  writeValue(controls, control, value);
  line.put(value.text());
  if (writeConfirmed(control, confirmed) && std::strcmp(confirmed.text(), value.text()) != 0) {
    writeUnit(*control.family, line);
    line.put(", not confirmed; in effect is ").put(confirmed.text());
  }
  writeUnit(*control.family, line);
}

// A control as "gain[2][1] = -6 dB".
void describeNamed(const Control& control, Line& line) {
  writeName(control, line);
  line.put(" = ");
  describe(control, line);
}

// Reads controls up to the end of the line.
bool parseAll(const char* args, std::vector<Control>& found) {
  do {
    Selection part;
    Text why;
    if (!parseControls(controls, args, part, why)) {
      return complain("%s", why.text());
    }
    for (unsigned int i = 0; i < part.count; ++i) {
      found.push_back(part.control(i));
    }
    skipBlanks(args);
  } while (*args != 0);
  return true;
}

bool get(const char* args) {
  std::vector<Control> found;
  if (!parseAll(args, found)) {
    return false;
  }
  for (const Control& control : found) {
    Text line;
    describeNamed(control, line);
    say("%s", line.text());
  }
  return true;
}

// The values of all members of a family; those of one first subscript stand together.
void writeValues(const Family& family, Line& line) {
  const unsigned int group = family.facts().ndim == 2 ? family.facts().dim[1] : family.size();
  for (unsigned int k = 0; k < family.size() && family.facts().kind != Kind::COMMAND; ++k) {
    line.put(k == 0 ? "" : k % group == 0 ? ", " : " ");
    writeValue(controls, {&family, k}, line);
  }
}

void listMembers(const Selection& part) {
  Text head;
  writeFamily(*part.family, head);
  head.put(": ").put(part.family->facts().help).put("; ");
  writeAllowed(*part.family, head);
  say("%s", head.text());
  for (unsigned int i = 0; i < part.count; ++i) {
    const Control control = part.control(i);
    Text name, numbers, value;
    writeName(control, name);
    numbers.put(control.id()).put(':').put(control.index());
    describe(control, value);
    say("  %-16s %-8s %s", name.text(), numbers.text(), value.text());
  }
}

// All members of all families.
std::vector<Selection> everything() {
  std::vector<Selection> all;
  for (const Family* const f : controls) {
    all.push_back({f, 0, f->size()});
  }
  return all;
}

bool list(const char* args) {
  constexpr char JSON[] = "--json";
  const std::size_t word = std::strcspn(args, " \t");
  const bool json = std::string(args, word) == JSON;
  args += json ? word : 0;
  skipBlanks(args);
  std::vector<Selection> parts;
  if (*args == 0) {
    parts = everything();
  } else {
    Selection part;
    Text why;
    if (!parseControls(controls, args, part, why)) {
      return complain("%s", why.text());
    }
    skipBlanks(args);
    if (!parseEnd(args)) {
      return false;
    }
    parts = {part};
  }
  if (json) {
    for (const std::string& line : toJson(parts)) {
      say("%s", line.c_str());
    }
  } else if (parts.size() == 1) {
    listMembers(parts[0]);
  } else {
    listFamilies();
  }
  return true;
}

// Tells what became of a set.
bool tellSet(bool good, const Control& control, const char* why) {
  if (!good) {
    return complain("%s", why);
  }
  Text line;
  writeName(control, line);
  if (control.family->facts().kind == Kind::COMMAND) {
    say("%s waits for confirm", line.text());
    return true;
  }
  line.put(" = ");
  writeValue(controls, control, line);
  writeUnit(*control.family, line);
  say("%s, waits for confirm", line.text());
  return true;
}

// A control, then "= VALUE", or a blank and VALUE.
bool set(const char* args) {
  Control control;
  Text why;
  if (!parseControl(controls, args, control, why)) {
    return complain("%s", why.text());
  }
  if (std::strchr(" \t=", *args) == nullptr && !parseEnd(args)) {
    return false;
  }
  skipBlanks(args);
  if (*args == '=') {
    skipBlanks(++args);
  }
  const bool good = setText(controls, control, args, why);
  return tellSet(good, control, why.text());
}

// A line that begins with a control and no command: alone it is a get, with a value a set.
bool getOrSet(const char* line) {
  const char* behind = line;
  Selection found;
  Text why;
  if (!parseControls(controls, behind, found, why)) {
    return complain("%s", why.text());
  }
  skipBlanks(behind);
  return *behind == 0 ? get(line) : set(line);
}

bool beginsWithControl(const char* line) {
  unsigned int id;
  const char* at = line;
  return (device::parseNumber(at, id) && *at == ':') ||
         controls.findFamily(line, std::strcspn(line, " \t[=")) != nullptr;
}

bool inc(const char* args) {
  Control control;
  Text why;
  if (!parseControl(controls, args, control, why)) {
    return complain("%s", why.text());
  }
  skipBlanks(args);
  const char* const size = args;
  int delta = 1;
  if (*args != 0 && (!device::parseNumber(args, delta) || *args != 0)) {
    return complain("a step is a whole number, not %s", size);
  }
  const bool good = step(controls, control, delta, why);
  return tellSet(good, control, why.text());
}

bool confirm(const char*) {
  const unsigned int count = controls.confirm();
  if (count == 0) {
    return complain("nothing waits for confirm");
  }
  say("%u %s confirmed; saved within about 10 seconds, or now with \"save\"", count,
      count == 1 ? "setting" : "settings");
  return true;
}

bool cancel(const char*) {
  const unsigned int count = controls.cancel();
  if (count == 0) {
    return complain("nothing waits for confirm");
  }
  say("%u %s taken back; what is in effect stays", count, count == 1 ? "setting" : "settings");
  return true;
}

bool save(const char*) {
  if (!xmlFile.save()) {
    return complain("the confirmed settings are not saved");
  }
  say("saved; %s", controls.waiting() == 0 ? "nothing waits for confirm"
                                           : "what waits for confirm is not in the file");
  return true;
}

// Reads a number of seconds from the front of `args`, if one stands there.
bool parseSeconds(const char*& args, unsigned int& seconds) {
  constexpr unsigned int MOST = 24 * 3600;
  const char* behind = args;
  unsigned int number;
  if (!device::parseNumber(behind, number) || std::strchr(" \t", *behind) == nullptr) {
    return true;
  }
  if (number > MOST) {
    return complain("%u s is too long, %u at most", number, MOST);
  }
  seconds = number;
  args = behind;
  skipBlanks(args);
  return true;
}

bool watch(const char* args) {
  constexpr unsigned int POLL_MS = 100;
  unsigned int seconds = 10;
  std::vector<Control> watched;
  if (!parseSeconds(args, seconds) || !parseAll(args, watched)) {
    return false;
  }
  if (consoleInteractive()) {
    say("watching for %u s, Enter ends it", seconds);
  }
  std::vector<std::string> shown(watched.size());
  for (unsigned int pass = 0; pass <= seconds * 1000 / POLL_MS; ++pass) {
    for (std::size_t i = 0; i < watched.size(); ++i) {
      Text now;
      describeNamed(watched[i], now);
      if (now.text() != shown[i]) {
        say("%s", now.text());
        shown[i] = now.text();
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
    say("a part is enough: gain 2, or gain. A line may begin with it: gain 2 1 shows the value,");
    say("gain 2 1 -6 or gain[2][1]=-6 sets it. Lines without the mark \"" MARK
        "\" are the library's.");
  }
  return true;
}

bool quit(const char* args) {
  const bool now = std::strcmp(args, "now") == 0;
  if (!now && !parseEnd(args)) {
    return false;
  }
  if (xmlFile.unsaved() && !xmlFile.save() && !now) {
    return complain("the confirmed settings are not saved; \"quit now\" ends without them");
  }
  consoleQuit();
  return true;
}

// Adds `lead` with `candidate` behind it, if that begins with `word`.
void addCandidate(std::vector<std::string>& found, const std::string& lead, const char* candidate,
                  const std::string& word) {
  const std::string whole = lead + candidate;
  if (whole.compare(0, word.size(), word) == 0) {
    found.push_back(whole);
  }
}

std::string lastWord(const std::string& text) {
  return text.substr(text.find_last_of(" \t") + 1);
}

// Names of controls for the last word of `args`.
std::vector<std::string> completeControl(const std::string& args) {
  std::vector<std::string> found;
  for (const Selection& family : everything()) {
    for (unsigned int i = 0; i < family.count; ++i) {
      Text name;
      writeName(family.control(i), name);
      addCandidate(found, "", name.text(), lastWord(args));
    }
  }
  return found;
}

std::vector<std::string> completeList(const std::string& args) {
  std::vector<std::string> found = completeControl(args);
  addCandidate(found, "", "--json", args);
  return found;
}

// Behind a control the names of its values, behind a family's name the subscripts.
std::vector<std::string> completeSet(const std::string& args) {
  const char* behind = args.c_str();
  Selection part;
  Text why;
  if (!parseControls(controls, behind, part, why) || std::strchr(" \t=", *behind) == nullptr ||
      *behind == 0) {
    return completeControl(args);
  }
  std::vector<std::string> found;
  const device::Facts& f = part.family->facts();
  const std::string word = lastWord(args);
  if (part.count > 1) {
    skipBlanks(behind);
    const unsigned int given = f.ndim == 2 && part.count < part.family->size() ? 1 : 0;
    for (unsigned int i = 0; *behind == 0 && i < f.dim[given]; ++i) {
      addCandidate(found, "", std::to_string(i).c_str(), word);
    }
    return found;
  }
  const std::string lead = word.substr(0, word.find('=') + 1);
  for (unsigned int i = 0; const char* const name = valueName(*part.family, i); ++i) {
    addCandidate(found, lead, name, word);
  }
  return found;
}

// Names of commands for the last word of `args`.
std::vector<std::string> completeName(const std::string& args) {
  std::vector<std::string> found;
  for (const Command* const* table = COMMAND_TABLES; *table != nullptr; ++table) {
    const std::vector<std::string> more = completeGroup(*table, args);
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
    {"list", "[--json] [CONTROL]", "all controls, or the members of a family or of a part", list,
     completeList},
    {"get", "CONTROL...", "values now", get, completeControl},
    {"set", "CONTROL VALUE", "checks a value and sets it, to be confirmed", set, completeSet},
    {"inc", "CONTROL [STEP]", "sets a number by a step, 1 or as given", inc, completeSet},
    {"confirm", "", "makes everything that was set take effect", confirm, nullptr},
    {"cancel", "", "takes back everything that was set and not confirmed", cancel, nullptr},
    {"watch", "[SECONDS] CONTROL...", "shows values as they change, for 10 seconds", watch,
     completeControl},
    {"wait", "[SECONDS]", "does nothing for a while", wait, nullptr},
    {"help", "[COMMAND]", "this list", help, completeName},
    {"save", "", "saves the confirmed settings now", save, nullptr},
    {"quit", "[now]", "ends the panel; confirmed settings are saved", quit, nullptr},
    {"exit", "[now]", "the same as quit", quit, nullptr},
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
  if (command != nullptr) {
    return carryOut(*command, text.c_str() + name.size());
  }
  if (beginsWithControl(text.c_str())) {
    return getOrSet(text.c_str());
  }
  return complain("no command \"%s\"; \"help\" shows all", name.c_str());
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

std::vector<std::string> completeGroup(const Command* table, const std::string& args) {
  std::vector<std::string> found;
  for (; table->name != nullptr; ++table) {
    if (std::strncmp(table->name, args.c_str(), args.size()) == 0) {
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
  if (first == std::string::npos) {
    return completeName("");
  }
  const std::string line = before.substr(first);
  const std::size_t end = line.find_first_of(" \t");
  if (end == std::string::npos) {
    std::vector<std::string> found = completeName(line);
    const std::vector<std::string> settings = completeSet(line);
    found.insert(found.end(), settings.begin(), settings.end());
    return found;
  }
  const Command* const command = findCommand(line.substr(0, end));
  if (command == nullptr) {
    return completeSet(line);
  }
  const char* args = line.c_str() + end;
  skipBlanks(args);
  return command->complete == nullptr ? std::vector<std::string>() : command->complete(args);
}

void listFamilies() {
  std::size_t width = 0;
  for (const Family* const f : controls) {
    Text values;
    writeValues(*f, values);
    width = std::max(width, values.length());
  }
  const int w = static_cast<int>(width);
  say("%-18s %3s  %-*s  %s", "control", "id", w, "now", "may be");
  for (const Family* const f : controls) {
    Text name, values, allowed;
    writeFamily(*f, name);
    writeValues(*f, values);
    writeAllowed(*f, allowed);
    say("%-18s %3u  %-*s  %s", name.text(), f->facts().id, w, values.text(), allowed.text());
  }
}
