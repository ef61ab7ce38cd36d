// Fatal assertions: how the library stops when a table of the application is wrong; and that what
// is printed goes nowhere else than to the standard streams.
//
// CTRL_ASSERT guards an invariant that only a fault in the program can break, never a value that
// came from outside. It is checked in every build. A failed one is reported on standard output,
// which is flushed, and the process ends by abort; nothing is unwound. Where it is about a control
// or a row of a table, a line in front names that. Any thread may fail one, and no memory is
// allocated for it.
#pragma once

/// The assertion handler: writes "Assertion failed: %s, file %s, line %d\n" to standard output and
/// flushes it, brings the boot flash back to read mode so that a restart can boot from it, and
/// aborts. The declaration agrees with that of C libraries whose <assert.h> has the same function,
/// down to the spelling of the attribute, and this function takes the place of theirs.
extern "C" void __assert(const char* expr, const char* file, int line) noexcept
    __attribute__((noreturn));

/// Reports a failed condition and the function it stands in through __assert. Never returns.
/// The arguments are zero-terminated texts and the line number; a very long condition is cut.
[[noreturn]] void ctrlAssertFailed(const char* expr, const char* file, int line, const char* func);

/// Keeps descriptors 1 and 2 from what is opened while it lives. Otherwise the first file or
/// connection of a process that was started without standard output or standard error would take
/// that place, and get what is printed.
///
/// The null device stands in for each of the two that is closed, for everybody in the process,
/// until the last guard is gone; then they are closed again and nothing is left open. Meanwhile
/// nobody else closes or replaces them. Descriptor 0 is not guarded, since nothing is printed
/// there: a file or socket may get it. The library holds a guard while it replaces a file, opens a
/// store file or makes a socket; a program that may be started so holds one in main. Any thread.
class StreamGuard {
 public:
  StreamGuard();
  StreamGuard(const StreamGuard&) = delete;
  StreamGuard& operator=(const StreamGuard&) = delete;
  ~StreamGuard();
};

/// What the assertions are about that fail on this thread while the object lives: it stands in a
/// line of its own in front of theirs. The object made last counts. For work at start-up and on
/// lists of rows; a request names its control with CTRL_ASSERT_ABOUT, which costs nothing.
class AssertSubject {
 public:
  static constexpr char CONTROL[] = "Control %u, index %u:\n";  ///< variable id and variable index
  static constexpr char FAMILY[] = "Control family %u:\n";      ///< variable id
  static constexpr char PRESET_ROW[] = "Row %u, counted from 0, of the preset list:\n";  ///< row

  /// `what`: one of the forms above, or another with its numbers; it is kept and not copied.
  explicit AssertSubject(const char* what, unsigned int first = 0, unsigned int second = 0);
  AssertSubject(const AssertSubject&) = delete;
  AssertSubject& operator=(const AssertSubject&) = delete;
  ~AssertSubject();

  /// Goes on to the next row.
  void next() { ++number; }

 private:
  friend void ctrlAssertFailed(const char* expr, const char* file, int line, const char* func);

  const char* const form;
  unsigned int number;
  const unsigned int index;
  const AssertSubject* const outer;
};

/// REQUIRES `cond`; a false one is a fatal assertion. `cond` is evaluated exactly once.
#define CTRL_ASSERT(cond) \
  ((cond) ? static_cast<void>(0) : ctrlAssertFailed(#cond, __FILE__, __LINE__, __func__))

/// CTRL_ASSERT with the arguments of an AssertSubject behind the condition.
#define CTRL_ASSERT_ABOUT(cond, ...) \
  ((cond) ? static_cast<void>(0)     \
          : (AssertSubject(__VA_ARGS__), ctrlAssertFailed(#cond, __FILE__, __LINE__, __func__)))
