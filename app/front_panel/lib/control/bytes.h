// Big-endian numbers in byte buffers: the one place where bytes are moved by shifts.
//
// Value buffers, flash words, factory images and component files all store numbers with the most
// significant byte first, on any host. These two helpers read and write them at any address, so
// no caller needs an aligned pointer or a test of the host's byte order. No state; any thread.
#pragma once

/// Reads `size` bytes, 0 to 4, as an unsigned number, most significant byte first.
/// `buf` may have any alignment and is not touched when `size` is 0, which reads as 0.
constexpr unsigned int getBigEndian(const unsigned char* buf, unsigned int size) {
  unsigned int val = 0;
  for (unsigned int i = 0; i < size; ++i) {
    val = (val << 8) | buf[i];
  }
  return val;
}

/// Writes the low `size` bytes, 0 to 4, of `val`, most significant byte first.
constexpr void putBigEndian(unsigned char* buf, unsigned int size, unsigned int val) {
  for (unsigned int i = size; i > 0; --i) {
    buf[i - 1] = static_cast<unsigned char>(val & 0xFF);
    val >>= 8;
  }
}
