// The memory of the board, and what stands for it where a process cannot see it.
//
// This module alone decides between the two. On a bare MCF5407 target the module registers, the
// two vector tables and the boot flash are found at the board's addresses. In every other build
// they are memory of this process, which lives as long as it does, so that the code above runs
// and can be tested anywhere. An application places a component file in the stand-in's boot flash
// with memcpy to bootFlash(slot). No lock: set-up belongs to one thread; the flash commands alone
// may come from any thread. Nothing here stops the process.
#pragma once

#include <cstddef>
#include <cstdint>

// 1: the board's addresses; 0: the stand-in. A build may set it, to check that both compile.
#if !defined(BOARD_BARE_TARGET)
#if defined(__mcoldfire__) && !defined(__linux__)
#define BOARD_BARE_TARGET 1
#else
#define BOARD_BARE_TARGET 0
#endif
#endif

/// The boot flash in the board's address space. It begins with the vector table used at reset.
constexpr std::uintptr_t BOOT_FLASH_ADDRESS = 0x08000000;
/// Bytes of boot flash that the stand-in has at start.
constexpr std::size_t BOOT_FLASH_SIZE = 0x00200000;
/// Offsets of the two component slots in the boot flash.
constexpr std::size_t BOOT_SLOTS[2] = {0x00010000, 0x00080000};
/// The vector table in RAM.
constexpr std::uintptr_t VECTOR_RAM_ADDRESS = 0x40000000;
/// The processor's module registers, which mbar.h points to. The stand-in's are plain memory, all 0
/// at start.
constexpr std::uintptr_t MBAR_ADDRESS = 0x80000000;

/// Entries of a vector table.
constexpr unsigned int NUM_VECTORS = 256;
/// An entry of a vector table: as wide as a function pointer of the host.
using boardVector_t = void (*)();

/// The vector table at the start of the boot flash. The stand-in's is all null until the
/// application fills it; on the board it cannot be written.
boardVector_t* boardRomVectors();
/// The vector table in RAM. The stand-in's is all null at start.
boardVector_t* boardRamVectors();

/// The byte of the boot flash at `offset`, below bootFlashSize(), and those behind it, as the array
/// reads. The stand-in's flash is erased, all 0xFF, at start and may be written.
unsigned char* bootFlash(std::size_t offset);

/// Bytes of boot flash: what no search for a component goes beyond.
std::size_t bootFlashSize();

/// Tells how large the boot flash of this board is. Before that it is BOOT_FLASH_SIZE for the
/// stand-in, and on the board all from there to the vector table in RAM, so that no component is
/// missed. The stand-in becomes as large: it keeps its bytes, and addresses from bootFlash of
/// before are void. Start-up thread.
void setBootFlashSize(std::size_t size);

/// Writes a command to the first 16-bit word of the boot flash.
void bootFlashCommand(unsigned short command);
/// Reads the first 16-bit word of the boot flash: the status or the array, by the last command.
unsigned short bootFlashWord();

constexpr unsigned short BOOT_FLASH_READ_STATUS = 0x70;  ///< command: answer with the status
constexpr unsigned short BOOT_FLASH_READ_ARRAY = 0xFF;   ///< command: answer with the array
constexpr unsigned short BOOT_FLASH_READY = 0x80;        ///< status bit: not busy

#if !BOARD_BARE_TARGET
/// Makes the stand-in's boot flash busy, as in the middle of an erase: it answers with its status
/// until `reads` reads of that have passed and it is told to answer with the array.
void bootFlashStandInBusy(unsigned int reads);
#endif
