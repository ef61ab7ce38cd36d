#include "console.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdio>
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
std::string unread;  // what was read from a pipe and not yet given out

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "written by a signal handler");

void onSignal(int number) {
  stopSignal = number;
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
  char text[1024];
  std::vsnprintf(text, sizeof text, format, args);
  for (char* c = text; *c != 0; ++c) {
    if (std::iscntrl(static_cast<unsigned char>(*c)) != 0) {
      *c = '?';  // a typed one would act on the terminal
    }
  }
  sio_printf(CONSOLE, MARK "%s%s\n", lead, text);
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
constexpr char CLEAR_ROW[] = "\r\033[K";
std::FILE* terminal = nullptr;  // what the editor draws on
std::string promptText;

// What anybody prints goes through here, at once and in its own thread. The first of it takes the
// row of the prompt and of the line that is being edited, which are drawn again below; of a longer
// line the rows above stay.
ssize_t printAbovePrompt(void*, const char* text, std::size_t size) {
  if (atPrompt && !redraw.exchange(true)) {
    std::fputs(CLEAR_ROW, terminal);
  }
  std::fwrite(text, 1, size, terminal);
  std::fflush(terminal);
  return static_cast<ssize_t>(size);
}

std::FILE* openAbovePrompt(int buffering) {
  std::FILE* const stream =
      fopencookie(nullptr, "w", {nullptr, printAbovePrompt, nullptr, nullptr});
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

// Gives the editor its next character, and the periodic work its time.
int readChar(EditLine*, wchar_t* out) {
  std::mbstate_t state = {};
  for (;;) {
    char byte;
    std::size_t got;
    atPrompt = true;
    const bool more = readMore(&byte, 1, got);
    atPrompt = false;
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
  stdout = openAbovePrompt(_IOLBF);
  if (isatty(STDERR_FILENO) != 0) {
    stderr = openAbovePrompt(_IONBF);
  }
  HistEvent event;
  history(history_, &event, H_SETSIZE, HISTORY_LINES);
  history(history_, &event, H_SETUNIQUE, 1);
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

bool readEditedLine(std::string& line) {
  promptText = hook.prompt();
  redraw = false;
  el_set(editor, EL_PREP_TERM, 1);  // before the prompt shows, so that no key after it is lost
  int count = 0;
  const char* const text = el_gets(editor, &count);
  if (text == nullptr || count <= 0 || stopSignal != 0) {
    sio_putc('\n', CONSOLE);
    return false;
  }
  line.assign(text, static_cast<std::size_t>(count));
  if (line.back() == '\n') {
    line.pop_back();
  }
  if (line.find_first_not_of(" \t") != std::string::npos) {
    HistEvent event;
    history(history_, &event, H_ENTER, line.c_str());
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
    history_end(history_);
    history_ = nullptr;
  }
#endif
}

bool consoleInteractive() {
  return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
}

bool consoleReadLine(std::string& line) {
  if (ending || stopSignal != 0) {
    return false;
  }
  if (editor != nullptr) {
    return readEditedLine(line);
  }
  if (consoleInteractive()) {
    sio_puts(hook.prompt().c_str(), CONSOLE);
    std::fflush(stdout);
  }
  return readPlainLine(line);
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
  int interrupt = SIGINT;
  if (fd >= 0 && stopSignal.compare_exchange_strong(interrupt, 0)) {
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
