#include "sio.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace {

constexpr unsigned int FLAG_ALTERNATE = 1;
constexpr unsigned int FLAG_ZERO_FILL = 2;
// A wider field is taken as this wide, so that widths can be added up.
constexpr unsigned int WIDEST = 0x3FFFFFFF;
// Digits of a number; only a pointer may have more.
constexpr std::size_t NUMBER_DIGITS = 10;
constexpr std::size_t POINTER_DIGITS = std::max(NUMBER_DIGITS, 2 * sizeof(void*));

// Keeps other threads' output out of one call's.
class OutputLock {
 public:
  OutputLock() { flockfile(stdout); }
  OutputLock(const OutputLock&) = delete;
  OutputLock& operator=(const OutputLock&) = delete;
  ~OutputLock() { funlockfile(stdout); }
};

void fill(int unit, char c, unsigned int from, unsigned int to) {
  for (; from < to; ++from) {
    sio_putc(c, unit);
  }
}

void _print_string(int unit, const char* string, unsigned int width) {
  unsigned int written = 0;
  for (; *string != '\0'; ++string, ++written) {
    sio_putc(*string, unit);
  }
  fill(unit, ' ', written, width);
}

void _print_number(int unit, int sign, std::uintptr_t value, unsigned int base, unsigned int width,
                   unsigned int flag, std::size_t digits = NUMBER_DIGITS) {
  char buf[POINTER_DIGITS];
  std::size_t count = 0;
  do {
    buf[count++] = "0123456789ABCDEF"[value % base];
    value /= base;
  } while (value != 0 && count < digits);

  unsigned int written = static_cast<unsigned int>(count);
  if (sign == -1) {
    sio_putc('-', unit);
    ++written;
  }
  if ((flag & FLAG_ALTERNATE) != 0 && base != 10) {
    sio_putc(base == 8 ? '0' : '$', unit);
    ++written;
  }
  fill(unit, (flag & FLAG_ZERO_FILL) != 0 ? '0' : ' ', written, width);
  while (count > 0) {
    sio_putc(buf[--count], unit);
  }
}

void printSigned(int unit, int value, unsigned int width, unsigned int flag) {
  const unsigned int magnitude = static_cast<unsigned int>(value);
  if (value < 0) {
    _print_number(unit, -1, 0U - magnitude, 10, width, flag);
  } else {
    _print_number(unit, 1, magnitude, 10, width, flag);
  }
}

// What stands between the `%` and the letter.
struct Field {
  unsigned int flag = 0;
  unsigned int width = 0;
};

// Reads a field and returns the address of the character behind it.
const char* parseField(const char* format, Field& field) {
  for (; *format == '#' || *format == '0'; ++format) {
    field.flag |= *format == '#' ? FLAG_ALTERNATE : FLAG_ZERO_FILL;
  }
  for (; *format >= '0' && *format <= '9'; ++format) {
    const unsigned int digit = static_cast<unsigned int>(*format - '0');
    field.width = std::min(WIDEST, field.width < WIDEST / 10 ? field.width * 10 + digit : WIDEST);
  }
  return format;
}

// A va_list that can be handed down and comes back moved on.
struct Arguments {
  va_list list;
};

void convert(int unit, char letter, const Field& field, Arguments& arguments) {
  switch (letter) {
    case 'd':
      printSigned(unit, va_arg(arguments.list, int), field.width, field.flag);
      break;
    case 'u':
      _print_number(unit, 1, va_arg(arguments.list, unsigned int), 10, field.width, field.flag);
      break;
    case 'o':
      _print_number(unit, 1, va_arg(arguments.list, unsigned int), 8, field.width, field.flag);
      break;
    case 'x':
      _print_number(unit, 1, va_arg(arguments.list, unsigned int), 16, field.width, field.flag);
      break;
    case 'p':
      _print_number(unit, 1, reinterpret_cast<std::uintptr_t>(va_arg(arguments.list, void*)), 16,
                    field.width == 0 ? 0 : field.width + 1, field.flag | FLAG_ALTERNATE,
                    POINTER_DIGITS);
      break;
    case 'c':
      sio_putc(va_arg(arguments.list, int), unit);
      break;
    case 's': {
      const char* const string = va_arg(arguments.list, const char*);
      _print_string(unit, string != nullptr ? string : "", field.width);
      break;
    }
    case '%':
      sio_putc('%', unit);
      break;
    default:
      sio_putc('%', unit);
      sio_putc(letter, unit);
      break;
  }
}

}  // namespace

void sio_init(const int /*unit*/, const int /*baud*/) {}

void sio_putc(const int c, const int /*unit*/) {
  std::putc(c, stdout);
}

void sio_puts(const char* s, const int unit) {
  const OutputLock lock;
  _print_string(unit, s, 0);
}

void sio_printf(const int unit, const char* format, ...) {
  const OutputLock lock;
  Arguments arguments;
  va_start(arguments.list, format);
  while (*format != '\0') {
    if (*format != '%') {
      sio_putc(*format++, unit);
      continue;
    }
    Field field;
    format = parseField(format + 1, field);
    if (*format == '\0') {
      sio_putc('%', unit);
    } else {
      convert(unit, *format++, field, arguments);
    }
  }
  va_end(arguments.list);
}

bool sio_flush(const int /*unit*/) {
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

int sio_getc(const int /*unit*/) {
  return std::getc(stdin);
}

int sio_may_getc(const int unit) {
  return sio_getc(unit);
}
