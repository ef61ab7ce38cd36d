#include "eh.h"

#include "board.h"
#include "debug.h"
#include "mbar.h"
#include "mcf5200.h"

eh_t user_exception_debug = nullptr;

const char* const vector_name[64] = {
    /*  0 */ nullptr,
    /*  1 */ nullptr,
    /*  2 */ "Access error",
    /*  3 */ "Address error",
    /*  4 */ "Illegal instruction",
    /*  5 */ "Divide by zero",
    /*  6 */ nullptr,
    /*  7 */ nullptr,
    /*  8 */ "Privilege violation",
    /*  9 */ "Trace",
    /* 10 */ "Line-a",
    /* 11 */ "Line-f",
    /* 12 */ "Non-PC bkpt debug interrupt",
    /* 13 */ "PC bkpt debug interrupt",
    /* 14 */ "Format error",
    /* 15 */ "Uninitialized interrupt",
    /* 16 */ nullptr,
    /* 17 */ nullptr,
    /* 18 */ nullptr,
    /* 19 */ nullptr,
    /* 20 */ nullptr,
    /* 21 */ nullptr,
    /* 22 */ nullptr,
    /* 23 */ nullptr,
    /* 24 */ "Spurious interrupt",
    /* 25 */ "Level 1 autovector",
    /* 26 */ "Level 2 autovector",
    /* 27 */ "Level 3 autovector",
    /* 28 */ "Level 4 autovector",
    /* 29 */ "Level 5 autovector",
    /* 30 */ "Level 6 autovector",
    /* 31 */ "Level 7 autovector",
    /* 32 */ "Trap #0",
    /* 33 */ "Trap #1",
    /* 34 */ "Trap #2",
    /* 35 */ "Trap #3",
    /* 36 */ "Trap #4",
    /* 37 */ "Trap #5",
    /* 38 */ "Trap #6",
    /* 39 */ "Trap #7",
    /* 40 */ "Trap #8",
    /* 41 */ "Trap #9",
    /* 42 */ "Trap #10",
    /* 43 */ "Trap #11",
    /* 44 */ "Trap #12",
    /* 45 */ "Trap #13",
    /* 46 */ "Trap #14",
    /* 47 */ "Trap #15",
    /* 48 */ nullptr,
    /* 49 */ nullptr,
    /* 50 */ nullptr,
    /* 51 */ nullptr,
    /* 52 */ nullptr,
    /* 53 */ nullptr,
    /* 54 */ nullptr,
    /* 55 */ nullptr,
    /* 56 */ nullptr,
    /* 57 */ nullptr,
    /* 58 */ nullptr,
    /* 59 */ nullptr,
    /* 60 */ nullptr,
    /* 61 */ "Unsupported instruction",
    /* 62 */ nullptr,
    /* 63 */ nullptr,
};

namespace {

constexpr unsigned int VECTOR_RESET_SP = 0;
constexpr unsigned int VECTOR_RESET_PC = 1;
constexpr unsigned int VECTOR_SPURIOUS = 24;
constexpr unsigned int VECTOR_TRAP_15 = 47;

unsigned int next_vector = 64;  // vectors 0 to 63 are the processor's own
unsigned int imr = 0;           // what was last written to the mask register

void eh_ignore() {}

void writeMask(unsigned int mask) {
  imr = mask;
  pSIM->IMR = imr;
}

}  // namespace

void eh_init(eh_t user) {
  user_exception_debug = user;
  boardVector_t* const table = boardRamVectors();
  for (unsigned int v = 0; v < NUM_VECTORS; ++v) {
    switch (v) {
      case VECTOR_RESET_SP:
      case VECTOR_RESET_PC:
      case VECTOR_TRAP_15:
        table[v] = rom_vector_table[v];
        break;
      case VECTOR_SPURIOUS:
        table[v] = eh_ignore;
        break;
      default:
        table[v] = fault_handler;
        break;
    }
  }
  eh_imr_disable(0xFFFFFFFF);
  set_vbr(static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(vector_table)));
}

unsigned int eh_set(const unsigned int v, eh_t eh) {
  const unsigned int used = v != 0 ? v : next_vector;
  CTRL_ASSERT(used < NUM_VECTORS);
  if (v == 0) {
    ++next_vector;
  }
  boardRamVectors()[used] = eh;
  return used;
}

void eh_imr_enable(const unsigned int mask) {
  writeMask(imr & ~mask);
}

void eh_imr_disable(const unsigned int mask) {
  writeMask(imr | mask);
}

void fault_dump(fault_frame_s* /*f*/) {}

void fault_handler() {}
