#include "flash.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "debug.h"

namespace {

// The flash is seen through words of two widths, whatever a host has declared its memory to be.
using flash16_t = std::uint16_t __attribute__((may_alias));
using flash32_t = std::uint32_t __attribute__((may_alias));

constexpr flash16_t READ_ARRAY = 0xFFFF;

constexpr unsigned int KIB = 1024;
constexpr unsigned int PARAMETER = 8 * KIB;  // parameter blocks of a boot part, eight of them
constexpr unsigned int MAIN = 64 * KIB;      // its other blocks
constexpr unsigned int PARAMETERS = 8;       // together as large as one main block
constexpr unsigned int UNIFORM = 128 * KIB;  // blocks of a part without parameter blocks
constexpr unsigned int INTEL = 0x0089;

// Boot parts with their parameter blocks at the lowest addresses, MAINS main blocks behind them.
template <unsigned int MAINS>
struct Bottom {
  static constexpr unsigned int SIZE = (MAINS + 1) * MAIN;
  static constexpr unsigned int BLOCKS = MAINS + PARAMETERS;
  static unsigned int a2b(unsigned int addr) {
    CTRL_ASSERT(addr < SIZE);
    return addr < MAIN ? addr / PARAMETER : addr / MAIN - 1 + PARAMETERS;
  }
  static unsigned int b2a(unsigned int block) {
    CTRL_ASSERT(block < BLOCKS);
    return block < PARAMETERS ? block * PARAMETER : (block - PARAMETERS + 1) * MAIN;
  }
};

// Boot parts with their parameter blocks at the highest addresses.
template <unsigned int MAINS>
struct Top {
  static constexpr unsigned int SIZE = (MAINS + 1) * MAIN;
  static constexpr unsigned int BLOCKS = MAINS + PARAMETERS;
  static unsigned int a2b(unsigned int addr) {
    CTRL_ASSERT(addr < SIZE);
    return addr < MAINS * MAIN ? addr / MAIN : MAINS + (addr - MAINS * MAIN) / PARAMETER;
  }
  static unsigned int b2a(unsigned int block) {
    CTRL_ASSERT(block < BLOCKS);
    return block < MAINS ? block * MAIN : MAINS * MAIN + (block - MAINS) * PARAMETER;
  }
};

template <unsigned int COUNT>
struct Uniform {
  static constexpr unsigned int SIZE = COUNT * UNIFORM;
  static constexpr unsigned int BLOCKS = COUNT;
  static unsigned int a2b(unsigned int addr) {
    CTRL_ASSERT(addr < SIZE);
    return addr / UNIFORM;
  }
  static unsigned int b2a(unsigned int block) {
    CTRL_ASSERT(block < BLOCKS);
    return block * UNIFORM;
  }
};

template <class Geometry>
constexpr flash_part_t part(const char* name, unsigned short dev_id) {
  return {name, INTEL, dev_id, Geometry::BLOCKS, Geometry::SIZE, Geometry::a2b, Geometry::b2a};
}

void flash_read_mode() {
  *static_cast<volatile flash16_t*>(p_flash) = READ_ARRAY;
}

// The part of a range that lies in the range's first aligned word.
struct Piece {
  unsigned char bytes[4];  // the whole word, in the order of the addresses
  unsigned int first;      // index of the range's first byte in it
  unsigned int size;       // bytes of the range in it, at least 1
};

// REQUIRES: size > 0.
Piece readPiece(unsigned int start, unsigned int size) {
  CTRL_ASSERT(size > 0);
  Piece piece;
  piece.first = start % 4;
  piece.size = std::min(size, 4 - piece.first);
  // A load puts the lowest address in front in memory again, on a host of either byte order.
  const std::uint32_t word = static_cast<const volatile flash32_t*>(p_flash)[start / 4];
  static_assert(sizeof word == sizeof piece.bytes, "one aligned access per word");
  std::memcpy(piece.bytes, &word, sizeof word);
  return piece;
}

}  // namespace

const flash_part_t flash_part[9] = {
    part<Top<15>>("28F800C3T", 0x88C0),   part<Bottom<15>>("28F800C3B", 0x88C1),
    part<Top<31>>("28F160C3T", 0x88C2),   part<Bottom<31>>("28F160C3B", 0x88C3),
    part<Top<63>>("28F320C3T", 0x88C4),   part<Bottom<63>>("28F320C3B", 0x88C5),
    part<Top<127>>("28F640C3T", 0x88CC),  part<Bottom<127>>("28F640C3B", 0x88CD),
    part<Uniform<32>>("28F320J3", 0x0016)};

const flash_part_t* p_flash_part = nullptr;

// NOLINTNEXTLINE(performance-no-int-to-ptr): the part stands at a fixed address
volatile void* p_flash = reinterpret_cast<volatile void*>(std::uintptr_t{0x08000000});

void flash_init() {}

void flash_read_block(void* data, unsigned int size, unsigned int start) {
  unsigned char* to = static_cast<unsigned char*>(data);
  flash_read_mode();
  while (size > 0) {
    const Piece piece = readPiece(start, size);
    std::memcpy(to, piece.bytes + piece.first, piece.size);
    to += piece.size;
    start += piece.size;
    size -= piece.size;
  }
}

bool flash_is_range_erased(unsigned int start, unsigned int size) {
  flash_read_mode();
  while (size > 0) {
    const Piece piece = readPiece(start, size);
    const unsigned char* const from = piece.bytes + piece.first;
    if (std::any_of(from, from + piece.size, [](unsigned char b) { return b != 0xFF; })) {
      return false;
    }
    start += piece.size;
    size -= piece.size;
  }
  return true;
}
