// The CRC-16 of component files.
//
// The polynomial is x^16 + x^12 + x^5 + 1, most significant bit first. Each byte enters at the low
// end of the register after the register has moved, so the result is the remainder of the bytes
// themselves, with no zero bits thought behind them as in the common direct form. No state, no
// allocation; any thread may call.
#pragma once

#include <cstddef>

/// Feeds `bufSize` bytes at `pBuf`, at any address, to the register `crc` and returns what is then
/// in it; with no bytes that is `crc`, and `pBuf` is not touched. Passing the result on to a next
/// call gives the same as one call over the joined buffers. Component files start from 0xFFFF.
unsigned short calcCRC16(unsigned short crc, const unsigned char* pBuf, std::size_t bufSize);
