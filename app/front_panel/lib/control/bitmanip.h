// Bit streams: values of up to 32 bits in a byte buffer, at any bit position.
//
// A stream runs from bit 7 of a byte down to bit 0, then on to bit 7 of the byte at the next
// higher address; bit 7 has the weight 128. A value lies in it most significant bit first. The
// layout is defined on bytes and is the same on every host.
//
// The caller owns the buffer and the cursor: a pointer to the current byte and the number of the
// next bit in it. Only what the caller counts as room is checked, never the buffer's real end. No
// state; any thread. A broken precondition is a fatal assertion.
#pragma once

constexpr unsigned int BYTE_BITS = 8;       ///< bits in a byte
constexpr unsigned int UNSIGNED_BITS = 32;  ///< bits in an unsigned int
constexpr unsigned int BYTE_MSBIT = 7;      ///< number of the most significant bit of a byte

static_assert(sizeof(unsigned int) * BYTE_BITS == UNSIGNED_BITS, "int has 32 bits");

/// The low `n` bits set, `n` from 0 to 32.
constexpr unsigned int calcBitMask(unsigned int n) {
  return n >= UNSIGNED_BITS ? 0xFFFFFFFFU : (1U << n) - 1U;
}

constexpr unsigned int BYTE_MASK = calcBitMask(BYTE_BITS);  ///< the bits of a byte

/// How many bits `val` needs: the number of its highest set bit plus one, 0 for 0.
unsigned int calcNumBits(unsigned int val);

/// Moves a value of `valSize` bits between `val` and the stream, and the cursor behind it.
///
/// `buf`: address of the pointer to the current byte; `startBit`: the next bit in that byte. A
/// fresh stream starts at bit 7. `bufSize`: room left in bits; it is compared with `valSize` and
/// the caller counts it down. `dir` true writes the low `valSize` bits of `val`, the higher ones
/// are ignored; `dir` false reads into `val`, the higher bits become 0.
///
/// A write that enters a byte at bit 7 clears that byte first, so a writer needs no cleared
/// buffer; at a lower bit the new bits are ORed to those above them. A byte that the value does
/// not reach is not touched.
///
/// Returns the whole bytes by which `*buf` moved forward, or -1 when the room is too small; then
/// neither the cursor, nor the buffer, nor `val` has changed.
///
/// REQUIRES: `buf` and `*buf` not null, `startBit` at most BYTE_MSBIT, `valSize` at most
/// UNSIGNED_BITS.
int bitBufferXfer(void** buf, unsigned int bufSize, unsigned int& startBit, unsigned int& val,
                  unsigned int valSize, bool dir);
