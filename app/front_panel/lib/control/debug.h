// Fatal assertions: how the library stops when a table of the application is wrong.
//
// CTRL_ASSERT guards an invariant that only a fault in the program can break, never a value that
// came from outside. It is checked in every build. A failed one is reported on standard output,
// which is flushed, and the process ends by abort; nothing is unwound. Any thread may fail one.
#pragma once

/// Reports a failed condition with its place and ends the process. Never returns.
/// The arguments are zero-terminated texts and the line number; a very long condition is cut.
[[noreturn]] void ctrlAssertFailed(const char* expr, const char* file, int line, const char* func);

/// REQUIRES `cond`; a false one is a fatal assertion. `cond` is evaluated exactly once.
#define CTRL_ASSERT(cond) \
  ((cond) ? static_cast<void>(0) : ctrlAssertFailed(#cond, __FILE__, __LINE__, __func__))
