// The console: characters, strings, and a formatter that is not printf.
//
// Output goes to standard output, buffered with everything else that is written there, and input
// comes from standard input. There is one console, so `unit` has no effect. Any thread may call;
// the text of one call is not mixed with another thread's. Nothing here stops the process.
#pragma once

/// Sets up a console. Does nothing on this platform.
void sio_init(const int unit, const int baud);

/// Writes one character, the low byte of `c`.
void sio_putc(const int c, const int unit);

/// Writes the string `s`, with no line end behind it.
void sio_puts(const char* s, const int unit);

/// Hands what is buffered to the system. False when anything that was ever printed on standard
/// output was lost, on a full disk for example: a program that is asked for its output then fails.
bool sio_flush(const int unit);

/// Writes `format` with its conversions replaced. A conversion is a `%`, then flags, `#` for the
/// alternate form and `0` for zero fill, then a width in decimal digits, then a letter:
///
///   d  int                   signed decimal
///   u  unsigned int          decimal
///   o  unsigned int          octal, the lowest ten digits; with `#` behind a `0`
///   x  unsigned int          hexadecimal in capital letters; with `#` behind a `$`
///   p  pointer               as x, always behind a `$`, which the width does not count; all the
///                            digits of a pointer are written, however wide pointers are
///   c  int                   one character; flags and width have no effect
///   s  const char*           the string, filled with spaces on the right; a null pointer is an
///                            empty string; flags have no effect
///   %  nothing               one `%`
///
/// A number is filled on the left, behind its sign and its prefix, with spaces or zeros. There is
/// no other flag, no precision and no length: another character is written as it is behind a `%`,
/// what stood between them is dropped, and no argument is taken. A format that ends inside a
/// conversion writes the `%`.
void sio_printf(const int unit, const char* format, ...);

/// Waits for a character and returns it, or EOF at the end of the input.
int sio_getc(const int unit);

/// On this platform the same as sio_getc: it waits as well.
int sio_may_getc(const int unit);
