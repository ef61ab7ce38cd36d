// Exceptions and interrupts of the processor: vector table, interrupt mask, fault frames.
//
// The tables and the mask register are the board's on a bare target and this process's memory
// elsewhere (board.h), where nothing ever raises an exception through them. The module keeps a
// shadow of the interrupt mask and the next free vector, without a lock: set-up runs on one
// thread. A vector outside the table is a fatal assertion.
#pragma once

#include <cstddef>
#include <cstdint>

/// An exception handler.
typedef void (*eh_t)();

/// The vector table at the start of the boot flash. Fixed before any static constructor runs.
extern const eh_t* const rom_vector_table;
/// The vector table in RAM, which eh_init builds and eh_set writes. 256 entries. Fixed likewise.
extern const eh_t* const vector_table;

/// The hook that eh_init was given last; null before. Nothing here calls it: it is for a debugger,
/// and for a fault handler that the board installs with eh_set.
extern eh_t user_exception_debug;

/// Names of the processor's own vectors, for fault reports; null where a vector has none.
extern const char* const vector_name[64];

/// What the processor stacks on an exception. `format` is in the most significant bits of the
/// first 32-bit word, in this order on every host.
struct exception_frame_s {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  std::uint32_t format : 4;  ///< format of the frame
  std::uint32_t fs_hi : 2;   ///< fault status, high part
  std::uint32_t vector : 8;  ///< vector number
  std::uint32_t fs_lo : 2;   ///< fault status, low part
  std::uint32_t sr : 16;     ///< status register
#else
  std::uint32_t sr : 16;     ///< status register
  std::uint32_t fs_lo : 2;   ///< fault status, low part
  std::uint32_t vector : 8;  ///< vector number
  std::uint32_t fs_hi : 2;   ///< fault status, high part
  std::uint32_t format : 4;  ///< format of the frame
#endif
  std::uint32_t pc;  ///< program counter
};
static_assert(offsetof(exception_frame_s, pc) == 4 && sizeof(exception_frame_s) == 8);

/// What a fault entry saves.
struct fault_frame_s {
  std::uint32_t d[8];    ///< data registers
  std::uint32_t a[8];    ///< address registers
  exception_frame_s ex;  ///< what the processor stacked
};
static_assert(offsetof(fault_frame_s, a) == 32 && offsetof(fault_frame_s, ex) == 64);
static_assert(sizeof(fault_frame_s) == 72);

/// Builds the vector table in RAM, masks all interrupt sources and stores the hook `user`, which
/// may be null. Vectors 0, 1 and 47 are those of the boot flash, a spurious interrupt is ignored,
/// and every other vector leads to fault_handler.
void eh_init(eh_t user);

/// Installs `eh` at vector `v`, or, with `v` 0, at the next free one, counted from 64. Returns the
/// vector used. REQUIRES: the vector is below 256.
unsigned int eh_set(const unsigned int v, eh_t eh);

/// Lets the interrupt sources in `mask` through: clears their bits in the interrupt mask register.
void eh_imr_enable(const unsigned int mask);

/// Masks the interrupt sources in `mask`: sets their bits in the interrupt mask register.
void eh_imr_disable(const unsigned int mask);

/// Reports a fault frame. Does nothing on this platform.
void fault_dump(fault_frame_s* f);

/// Entry for exceptions that nobody handles. Does nothing on this platform.
void fault_handler();
