// A writer of component files that shares nothing with the library: bytes by offset, CRC by bit.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace component {

/// The register after `bytes`: each bit pushes the register on, and comes in at its low end.
inline unsigned int crcByBits(unsigned int crc, const std::string& bytes) {
  for (std::size_t i = 0; i < 8 * bytes.size(); ++i) {
    const unsigned int in = static_cast<unsigned char>(bytes[i / 8]) >> (7 - i % 8) & 1;
    crc = (crc * 2 + in) ^ (crc >= 0x8000 ? 0x11021 : 0);
  }
  return crc;
}

inline std::string number(unsigned long val) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes += static_cast<char>(static_cast<unsigned char>(val >> shift));
  }
  return bytes;
}

inline std::string text(const std::string& t, std::size_t width) {
  return t + std::string(width - t.size(), '\0');
}

/// A header with its CRC behind it.
inline std::string closed(const std::string& header) {
  return header + number(crcByBits(0xFFFF, header + std::string(2, '\0')));
}

struct File {
  std::string name;
  std::string data;
};

inline std::string subcomponent(const File& file) {
  return closed(text(file.name, 52) + number(file.data.size()) +
                number(crcByBits(0xFFFF, file.data)) + text("tag", 52)) +
         file.data;
}

inline std::string componentHeader(std::size_t numFiles, const std::string& product = "Mixer") {
  return closed(text(product, 31) + text("boot", 31) + text("FP-2", 6) + '\x03' + '\xC8' +
                text("3.200 beta", 11) + text("2004-02-29 12:00:00", 26) +
                static_cast<char>(static_cast<unsigned char>(numFiles)));
}

inline std::string component(const std::vector<File>& files) {
  std::string bytes = componentHeader(files.size());
  for (const File& file : files) {
    bytes += subcomponent(file);
  }
  return bytes;
}

}  // namespace component
