// Any text as a format of sio_printf: it writes what printf writes of the same in its own terms,
// and reads nothing behind the format's zero byte.
//
// The first bytes are the number that is printed. Conversions beyond the number of arguments become
// plain characters.
#include <algorithm>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bytes.h"
#include "debug.h"
#include "sio.h"

namespace {

constexpr char LETTERS[] = "duoxpcs";

// One conversion in the terms of printf; a `letter` of 0 is the end of the format.
std::string translate(const std::string& flags, int width, char letter) {
  if (std::strchr(LETTERS, letter) == nullptr || letter == 0) {
    return letter == 0 || letter == '%' ? "%%" : std::string("%%") + letter;
  }
  const bool alternate = flags.find('#') != flags.npos, zeros = flags.find('0') != flags.npos;
  std::string all = letter == 'p' || (letter == 'x' && alternate) ? "$" : "";
  all += letter == 'o' && alternate ? "0" : "";
  width -= letter == 'p' ? 0 : static_cast<int>(all.size());
  all += letter == 's' ? "%-" : zeros && letter != 'c' ? "%0" : "%";
  all += width > 0 && letter != 'c' ? std::to_string(width) : "";
  return all + (letter == 'p' ? PRIXPTR : std::string(1, letter == 'x' ? 'X' : letter));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t HEAD = 4;
  if (size < HEAD) {
    return 0;
  }
  // Of 30 bits, both write all digits and no sign.
  const std::uintptr_t value = getBigEndian(data, HEAD) & 0x3FFFFFFF;
  const char* a[8] = {};
  std::size_t taken = 0;
  std::string format(data + HEAD, data + size), terms;
  format.resize(std::strlen(format.c_str()));
  for (std::size_t at = 0; at < format.size(); ++at) {
    if (format[at] != '%' || taken == 8) {
      format[at] = format[at] == '%' ? '.' : format[at];
      terms += format[at];
      continue;
    }
    const std::size_t digits = std::min(format.size(), format.find_first_not_of("#0", at + 1));
    std::size_t letter = std::min(format.size(), format.find_first_not_of("0123456789", digits));
    const std::string columns = format.substr(digits, letter - digits).substr(0, 3);
    // A width of many digits is a long wait, not a fault.
    format.replace(digits, letter - digits, columns);
    letter = digits + columns.size();
    terms += translate(format.substr(at + 1, digits - at - 1), std::atoi(columns.c_str()),
                       format[letter]);
    a[taken] = format[letter] == 's' ? "text" : reinterpret_cast<const char*>(value);
    taken += format[letter] != 0 && std::strchr(LETTERS, format[letter]) != nullptr ? 1 : 0;
    at = letter;
  }
  std::string all(terms.size() + 8 * 1000, ' ');
  all.resize(static_cast<std::size_t>(std::snprintf(all.data(), all.size(), terms.c_str(), a[0],
                                                    a[1], a[2], a[3], a[4], a[5], a[6], a[7])));
  char* const exact = strdup(format.c_str());
  char* written = nullptr;
  std::size_t length = 0;
  std::FILE* const console = stdout;
  stdout = open_memstream(&written, &length);
  sio_printf(0, exact, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]);
  std::fclose(stdout);
  stdout = console;
  CTRL_ASSERT(std::string(written, length) == all);
  std::free(written);
  std::free(exact);
  return 0;
}
