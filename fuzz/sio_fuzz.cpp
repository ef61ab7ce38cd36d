// Any text as a format of sio_printf: it ends, and reads nothing behind the format's zero byte.
//
// Every argument is the address of a text, which every conversion can take: a number shows its low
// bits. Percent signs beyond the number of arguments become plain characters.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "sio.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::unique_ptr<char[]> format(new char[size + 1]);
  unsigned int left = 8;
  for (std::size_t i = 0; i < size; ++i) {
    format[i] = static_cast<char>(data[i] == '%' && left == 0 ? '.' : data[i]);
    left -= format[i] == '%' ? 1 : 0;
    // A width of many digits is a long wait, not a fault.
    if (i >= 4 && format[i] >= '0' && format[i] <= '9' && format[i - 1] >= '0' &&
        format[i - 1] <= '9' && format[i - 2] >= '0' && format[i - 2] <= '9') {
      format[i] = 'd';
    }
  }
  format[size] = 0;
  const char* const text = "text";
  sio_printf(0, format.get(), text, text, text, text, text, text, text, text);
  return 0;
}
