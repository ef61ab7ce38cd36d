// Console: reads lines, with editing, history and completion on a terminal, plainly from a pipe.
//
// One loop waits for input and lets the periodic work of the application go on meanwhile. Every
// line that the panel itself prints begins with MARK; all other lines come from the library. Both
// go to standard output through no pipe or buffer of another thread, so the report of a fatal
// assertion is never lost; while a line is edited they appear above it, the library's dim unless
// NO_COLOR is set. SIGINT, SIGTERM and SIGHUP end the input as the end of a file does; at a
// terminal Ctrl-C drops the line, and ends the input when it comes twice on an empty one. What is
// typed there is kept in panel.history, for the next start. Main thread only, but for say and
// complain; nothing stops the process.
#pragma once

#include <string>
#include <vector>

/// In front of each line of the panel's own.
#define MARK "| "

/// What the console asks of the application.
struct ConsoleHooks {
  /// Runs about ten times a second while the console waits.
  void (*periodic)();
  /// What may stand at the end of `before`, the line up to the cursor: whole words, of which the
  /// last word of `before` is the beginning.
  std::vector<std::string> (*complete)(const std::string& before);
  /// The prompt of the next line.
  std::string (*prompt)();
};

/// Starts the console: signals, terminal, history. Call once.
void consoleStart(const ConsoleHooks& hooks);
/// Gives the terminal back as it was.
void consoleEnd();

/// True when a person sits at a terminal.
bool consoleInteractive();

/// Waits for the next line, without its line end. False when there are no more: end of the input,
/// a signal, Ctrl-C twice, or consoleQuit.
bool consoleReadLine(std::string& line);

/// Lets the periodic work go on for `ms`. False when a person ended the wait earlier, with Enter
/// or Ctrl-C, or the panel is to end.
bool consolePause(unsigned int ms);

/// Makes the next consoleReadLine return false.
void consoleQuit();

/// Prints one line, with the mark in front and a line end behind. Any thread.
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Prints one line beginning with "error: ". Returns false, for a command to hand on.
/// Any thread.
bool complain(const char* format, ...) __attribute__((format(printf, 1, 2)));
