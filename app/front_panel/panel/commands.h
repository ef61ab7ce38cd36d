// Commands: what a person can type, as tables.
//
// A command is a row of a table. A feature brings a table of its own, in a file of its own, and
// main.cpp lists the tables in COMMAND_TABLES; "help" and completion follow from them. Main thread
// only.
#pragma once

#include <string>
#include <vector>

/// One command.
struct Command {
  const char* name;   ///< the word that is typed
  const char* usage;  ///< the arguments, as "help" writes them; without any, it is run without
  const char* help;   ///< one line
  /// Carries the command out. `args` is the rest of the line, without blanks round it. False when
  /// it was refused; the reason has been printed.
  bool (*run)(const char* args);
  /// What the last word of `args` can become, as whole words; `args` is the line between the
  /// command and the cursor, without blanks in front. Null for nothing.
  std::vector<std::string> (*complete)(const std::string& args);
};

/// All tables, each ended by a null name, the list by null. Defined in main.cpp.
extern const Command* const COMMAND_TABLES[];

/// list, get, set, inc, confirm, cancel, watch, wait, help, save, quit, exit.
extern const Command CONTROL_COMMANDS[];

/// Runs one line: a command, or a control, which is shown, or set if a value stands behind it. An
/// empty line and one that begins with # does nothing. False when it was refused.
bool runCommand(const std::string& line);

/// Runs the command of `table` that `args` begins with. `group` is the word in front of it; alone
/// it prints the table. False when it was refused.
bool runGroup(const char* group, const Command* table, const char* args);

/// The names of `table` that begin with `args`.
std::vector<std::string> completeGroup(const Command* table, const std::string& args);

/// For a command that has read all its arguments: complains of what else stands there.
bool parseEnd(const char* args);

/// For the console: what may stand at the end of `before`.
std::vector<std::string> completeCommand(const std::string& before);

/// Prints the table of the families with their present values.
void listFamilies();
