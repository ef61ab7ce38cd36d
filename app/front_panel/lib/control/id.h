// The board's identity: serial number, revision and build number.
//
// They are read from the board's key and value store (env.h) at the first call of each function
// and kept; a later change of the store is not seen. Any thread may call, the first time too.
// Nothing here stops the process.
#pragma once

/// Bytes of a serial number.
const unsigned int SER_NUM_LENGTH = 5;
/// Part of the interface.
const unsigned int APP_ID_LENGTH = 10;

/// Copies the serial number to `buf`, which has `len` bytes: all of it or its first bytes. `len`
/// becomes the number of bytes copied, at most SER_NUM_LENGTH. It stands under the key "SN" as ten
/// hexadecimal digits; without the key all bytes are 0, and a pair that is no number is not
/// reported.
void getSerNum(void* buf, unsigned int& len);

/// Copies the board's revision to `buf`, which has `len` bytes, as a zero-terminated text that is
/// cut to fit; `buf` may be null and `len` 0. Sets `pbuild` to the build number. Returns true when
/// the store has both, under the keys "BRDREV", up to ten characters, and "BRDBLD", a decimal
/// number; in place of a missing one stands "A" or 1.
bool getBoardRev(char* buf, unsigned int len, unsigned int& pbuild);
