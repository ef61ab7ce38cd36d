#include "console.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "sio.h"

#ifdef PANEL_LIBEDIT
#include <histedit.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds PERIOD(100);
constexpr int CONSOLE = 0;  // the unit of the library's console

ConsoleHooks hook;
std::atomic<int> stopSignal{0};            // the signal that asks the panel to end, or 0
std::atomic<bool> terminalChanged{false};  // its size, or its mode while we were stopped
bool ending = false;
std::atomic<bool> atPrompt{false};  // a line is being edited on the terminal
std::atomic<bool> redraw{false};
std::string promptText;
std::string unread;  // what was read from a pipe and not yet given out

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "written by a signal handler");

// An interrupt, which a person takes for a line only, never hides a signal that ends the panel.
void onSignal(int number) {
  int none = 0;
  if (number != SIGINT) {
    stopSignal = number;
  } else {
    stopSignal.compare_exchange_strong(none, number);
  }
}

// True for a person's Ctrl-C, which is over then.
bool takeInterrupt() {
  int interrupt = SIGINT;
  return consoleInteractive() && stopSignal.compare_exchange_strong(interrupt, 0);
}

void handle(int number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(number, &action, nullptr);
}

void catchSignals() {
  handle(SIGINT, onSignal);
  handle(SIGTERM, onSignal);
  handle(SIGHUP, onSignal);
  // A reader of our output that goes away must not take an unsaved setting with it.
  handle(SIGPIPE, SIG_IGN);
}

void print(const char* lead, const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  std::string text(static_cast<std::size_t>(length) + 1, 0);
  std::vsnprintf(text.data(), text.size(), format, again);
  va_end(again);
  text.pop_back();
  for (char& c : text) {
    if (std::iscntrl(static_cast<unsigned char>(c)) != 0) {
      c = '?';  // a typed one would act on the terminal
    }
  }
  sio_printf(CONSOLE, MARK "%s%s\n", lead, text.c_str());
}

void refreshPrompt();
void adoptTerminal();

void runPeriodic() {
  static Clock::time_point last;
  if (Clock::now() - last < PERIOD) {
    return;
  }
  last = Clock::now();
  hook.periodic();
  if (atPrompt && terminalChanged.exchange(false)) {
    adoptTerminal();
    redraw = true;
  }
  if (redraw.exchange(false) && atPrompt) {
    refreshPrompt();
  }
}

// Waits until `fd` can be read (-1 for none), `end` has come, or the panel is to end. The other
// threads may take the signal, so the flag is looked at every period.
enum Wake { INPUT, TIMEOUT, STOP };
Wake waitFor(int fd, Clock::time_point end) {
  for (;;) {
    runPeriodic();
    if (ending || stopSignal != 0) {
      return STOP;
    }
    const auto now = Clock::now();
    if (now >= end) {
      return TIMEOUT;
    }
    auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(end - now);
    wait = wait < PERIOD ? wait + std::chrono::milliseconds(1) : PERIOD;
    pollfd input = {fd, POLLIN, 0};
    if (poll(&input, 1, static_cast<int>(wait.count())) > 0) {
      return INPUT;
    }
  }
}

// Reads what there is; false at the end of the input or when the panel is to end.
bool readMore(char* buf, std::size_t size, std::size_t& got) {
  while (waitFor(STDIN_FILENO, Clock::time_point::max()) == INPUT) {
    const ssize_t n = read(STDIN_FILENO, buf, size);
    if (n > 0) {
      got = static_cast<std::size_t>(n);
      return true;
    }
    if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
      return false;
    }
  }
  return false;
}

bool readPlainLine(std::string& line) {
  std::size_t end;
  std::size_t searched = 0;
  while ((end = unread.find('\n', searched)) == std::string::npos) {
    searched = unread.size();
    char buf[4096];
    std::size_t got;
    if (!readMore(buf, sizeof buf, got)) {
      line.swap(unread);
      unread.clear();
      return !line.empty() && stopSignal == 0;
    }
    unread.append(buf, got);
  }
  line = unread.substr(0, end);
  unread.erase(0, end + 1);
  runPeriodic();
  return stopSignal == 0;
}

#ifdef PANEL_LIBEDIT

void onTerminalChange(int) {
  terminalChanged = true;
}

EditLine* editor = nullptr;
History* history_ = nullptr;
bool historyIsNew = false;  // has lines that its file has not
constexpr char HISTORY_FILE[] = "panel.history";
constexpr char CLEAR_ROW[] = "\r\033[K";
std::FILE* terminal = nullptr;  // what the editor draws on

// A stream that is printed on the terminal, above the prompt.
struct PrintStream {
  bool atLineStart = true;
  bool ours = false;  // the line is the panel's
};
PrintStream printedOut, printedErrors;
bool dimsOthers = false;  // the library's lines are shown dim

// Prints one line or a piece of one, without its end.
void printPiece(PrintStream& stream, const char* text, std::size_t size) {
  if (stream.atLineStart) {
    stream.ours = std::strncmp(text, MARK, std::min(size, sizeof MARK - 1)) == 0;
  }
  const bool dim = dimsOthers && !stream.ours;
  std::fputs(dim ? "\033[2m" : "", terminal);
  std::fwrite(text, 1, size, terminal);
  std::fputs(dim ? "\033[0m" : "", terminal);
}

// What anybody prints goes through here, at once and in its own thread. The first of it takes the
// row of the prompt and of the line that is being edited, which are drawn again below; of a longer
// line the rows above stay.
ssize_t printAbovePrompt(void* cookie, const char* text, std::size_t size) {
  PrintStream& stream = *static_cast<PrintStream*>(cookie);
  if (atPrompt && !redraw.exchange(true)) {
    std::fputs(CLEAR_ROW, terminal);
  }
  const char* const end = text + size;
  for (const char* at = text; at != end;) {
    const char* const lineEnd = std::find(at, end, '\n');
    if (lineEnd != at) {
      printPiece(stream, at, static_cast<std::size_t>(lineEnd - at));
    }
    stream.atLineStart = lineEnd != end;
    if (stream.atLineStart) {
      std::fputc('\n', terminal);
    }
    at = lineEnd + (stream.atLineStart ? 1 : 0);
  }
  std::fflush(terminal);
  return static_cast<ssize_t>(size);
}

std::FILE* openAbovePrompt(PrintStream& printed, int buffering) {
  std::FILE* const stream =
      fopencookie(&printed, "w", {nullptr, printAbovePrompt, nullptr, nullptr});
  if (stream == nullptr) {
    return terminal;
  }
  std::setvbuf(stream, nullptr, buffering, BUFSIZ);
  return stream;
}

char* prompt(EditLine*) {
  return promptText.data();
}

void refreshPrompt() {
  std::fputs(CLEAR_ROW, terminal);
  std::fflush(terminal);
  el_set(editor, EL_REFRESH);
}

void adoptTerminal() {
  el_set(editor, EL_PREP_TERM, 0);  // or the editor takes the mode for set already
  el_set(editor, EL_PREP_TERM, 1);
  el_resize(editor);
}

// Gives the editor its next character, and the periodic work its time. Ctrl-C ends the line.
int readChar(EditLine*, wchar_t* out) {
  std::mbstate_t state = {};
  for (;;) {
    char byte;
    std::size_t got;
    atPrompt = true;
    const bool more = readMore(&byte, 1, got);
    atPrompt = false;
    if (!more && stopSignal == SIGINT) {
      std::fputs("^C", terminal);
      *out = L'\n';
      return 1;
    }
    if (!more) {
      return 0;
    }
    const std::size_t length = std::mbrtowc(out, &byte, 1, &state);
    if (length == static_cast<std::size_t>(-1)) {
      *out = L'?';  // no character of the user's locale
      return 1;
    }
    if (length != static_cast<std::size_t>(-2)) {
      return 1;
    }
  }
}

void listCandidates(const std::vector<std::string>& found) {
  constexpr std::size_t WIDTH = 76;
  std::string row;
  sio_putc('\n', CONSOLE);
  for (const std::string& candidate : found) {
    if (!row.empty() && row.size() + candidate.size() + 2 > WIDTH) {
      say("%s", row.c_str());
      row.clear();
    }
    row += (row.empty() ? "" : "  ") + candidate;
  }
  say("%s", row.c_str());
}

unsigned char completeLine(EditLine* el, int) {
  const LineInfo* const info = el_line(el);
  const std::string before(info->buffer, info->cursor);
  const std::size_t word = before.size() - (before.find_last_of(" \t") + 1);
  const std::vector<std::string> found = hook.complete(before);
  if (found.empty()) {
    return CC_ERROR;
  }
  std::string common = found.front();
  for (const std::string& candidate : found) {
    std::size_t same = 0;
    while (same < common.size() && same < candidate.size() && common[same] == candidate[same]) {
      ++same;
    }
    common.resize(same);
  }
  if (found.size() == 1 && common.back() != '/') {
    common += ' ';
  }
  if (common.size() > word) {
    el_insertstr(el, common.c_str() + word);
    return CC_REFRESH;
  }
  listCandidates(found);
  return CC_REDISPLAY;
}

bool wantsColours() {
  const char* const no = std::getenv("NO_COLOR");
  const char* const term = std::getenv("TERM");
  return (no == nullptr || *no == 0) && term != nullptr && std::strcmp(term, "dumb") != 0;
}

void startEditor() {
  constexpr int HISTORY_LINES = 500;
  std::setlocale(LC_CTYPE, "");
  editor = el_init("panel", stdin, stdout, stderr);
  history_ = history_init();
  if (editor == nullptr || history_ == nullptr) {
    consoleEnd();  // plain lines, then
    return;
  }
  terminal = stdout;
  dimsOthers = wantsColours();
  stdout = openAbovePrompt(printedOut, _IOLBF);
  if (isatty(STDERR_FILENO) != 0) {
    stderr = openAbovePrompt(printedErrors, _IONBF);
  }
  HistEvent event;
  history(history_, &event, H_SETSIZE, HISTORY_LINES);
  history(history_, &event, H_SETUNIQUE, 1);
  history(history_, &event, H_LOAD, HISTORY_FILE);
  el_set(editor, EL_PROMPT, prompt);
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_HIST, history, history_);
  el_set(editor, EL_GETCFN, readChar);
  el_set(editor, EL_ADDFN, "panel-complete", "Complete a command or a control", completeLine);
  el_set(editor, EL_BIND, "^I", "panel-complete", nullptr);
  el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  el_source(editor, nullptr);
  handle(SIGWINCH, onTerminalChange);
  handle(SIGCONT, onTerminalChange);
}

// Reads a line; false with what was typed of it when it was dropped.
bool readEditedLine(std::string& line) {
  redraw = false;
  el_set(editor, EL_PREP_TERM, 1);  // before the prompt shows, so that no key after it is lost
  int count = 0;
  const char* const text = el_gets(editor, &count);
  line.assign(text == nullptr ? "" : text, static_cast<std::size_t>(std::max(count, 0)));
  const bool whole = !line.empty() && line.back() == '\n';
  if (whole) {
    line.pop_back();
  } else {
    sio_putc('\n', CONSOLE);
  }
  if (stopSignal != 0 || (!whole && line.empty())) {
    return false;
  }
  if (line.find_first_not_of(" \t") != std::string::npos) {
    HistEvent event;
    history(history_, &event, H_ENTER, line.c_str());
    historyIsNew = true;
  }
  return true;
}

#else

void* const editor = nullptr;
void refreshPrompt() {}
void adoptTerminal() {}
void startEditor() {}
bool readEditedLine(std::string&) {
  return false;
}

#endif

}  // namespace

void consoleStart(const ConsoleHooks& hooks) {
  hook = hooks;
  // Each line goes out at once, also to a file or a pipe, in one order with the library's lines.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  catchSignals();
  if (consoleInteractive()) {
    startEditor();
  }
}

void consoleEnd() {
#ifdef PANEL_LIBEDIT
  if (editor != nullptr) {
    el_end(editor);
    editor = nullptr;
  }
  if (history_ != nullptr) {
    HistEvent event;
    if (historyIsNew) {
      history(history_, &event, H_SAVE, HISTORY_FILE);
    }
    history_end(history_);
    history_ = nullptr;
  }
#endif
}

bool consoleInteractive() {
  return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
}

bool consoleReadLine(std::string& line) {
  takeInterrupt();  // a command that runs is not stopped
  for (bool warned = false; !ending && stopSignal == 0;) {
    promptText = hook.prompt();
    if (editor == nullptr && consoleInteractive()) {
      sio_puts(promptText.c_str(), CONSOLE);
      std::fflush(stdout);
    }
    if (editor == nullptr ? readPlainLine(line) : readEditedLine(line)) {
      return true;
    }
    if (!takeInterrupt() || (warned && line.empty())) {
      return false;
    }
    warned = line.empty();
    if (warned) {
      say("Ctrl-C again ends the panel, as quit and Ctrl-D do");
    }
  }
  return false;
}

bool consolePause(unsigned int ms) {
  const int fd = consoleInteractive() ? STDIN_FILENO : -1;
  switch (waitFor(fd, Clock::now() + std::chrono::milliseconds(ms))) {
    case TIMEOUT:
      return true;
    case INPUT: {
      char line[256];
      return read(fd, line, sizeof line) < 0;  // Enter: the line belongs to this wait
    }
    case STOP:
      break;
  }
  if (takeInterrupt()) {
    sio_putc('\n', CONSOLE);  // Ctrl-C ends the wait only
  }
  return false;
}

void consoleQuit() {
  ending = true;
}

void say(const char* format, ...) {
  va_list args;
  va_start(args, format);
  print("", format, args);
  va_end(args);
}

bool complain(const char* format, ...) {
  va_list args;
  va_start(args, format);
  print("error: ", format, args);
  va_end(args);
  return false;
}
