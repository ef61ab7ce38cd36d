// Any bytes as a component file of unknown origin: judged without a byte read behind them.
//
// A first byte with its lowest bit set has the checksums put right before the check, so that the
// walk gets past the headers; the sizes that they state stay what they are.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "comp.h"
#include "crc.h"

namespace {

// Puts the CRC of a header of `size` bytes at `header` right.
void seal(unsigned char* header, std::size_t size) {
  std::memset(header + size - 4, 0, 4);
  putBigEndian(header + size - 4, 4, calcCRC16(0xFFFF, header, size - 2));
}

void sealAll(unsigned char* file, std::size_t size) {
  if (size < sizeof(component_t)) {
    return;
  }
  const unsigned int count = file[offsetof(component_t, num_subcomps)];
  seal(file, sizeof(component_t));
  std::size_t at = sizeof(component_t);
  for (unsigned int i = 0; i < count && size - at >= sizeof(subcomp_t); ++i) {
    unsigned char* const header = file + at;
    const std::size_t room = size - at - sizeof(subcomp_t);
    const std::size_t fileSize = getBigEndian(header + offsetof(subcomp_t, filesize), 4);
    const std::size_t present = std::min(room, fileSize);
    putBigEndian(header + offsetof(subcomp_t, filecrc), 4,
                 calcCRC16(0xFFFF, header + sizeof(subcomp_t), present));
    seal(header, sizeof(subcomp_t));
    at += sizeof(subcomp_t) + present;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::size_t length = size == 0 ? 0 : size - 1;
  const std::unique_ptr<unsigned char[]> file(new unsigned char[length]);
  std::copy(data + size - length, data + size, file.get());
  if (size > 0 && (data[0] & 1) != 0) {
    sealAll(file.get(), length);
  }
  const bool valid = validate_bin_file(file.get(), length) != 0;
  const component_t* const header = reinterpret_cast<const component_t*>(file.get());
  unsigned long found = 0;
  const unsigned char* const at = locate_file_in(header, length, "app.bin", &found);
  const bool outside =
      at != nullptr && (at < file.get() || found > length || at > file.get() + (length - found));
  // What is valid within its length is valid without one.
  if (outside || (valid && (validate_bin_file(file.get()) == 0 ||
                            locate_file_in(header, "app.bin", &found) != at))) {
    std::abort();
  }
  return 0;
}
