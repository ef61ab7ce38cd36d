#include "board.h"

#include "eh.h"
#include "mbar.h"

#if BOARD_BARE_TARGET

// The pointers below are constants of the linked image, there before any constructor runs, only as
// long as each is one cast of a number: a function or a pointer between them makes code of it.
#define BOARD_AT(type, address) reinterpret_cast<type*>(address)
#define MODULES BOARD_AT(volatile mcf5407_t, MBAR_ADDRESS)
#define ROM_VECTORS BOARD_AT(boardVector_t, BOOT_FLASH_ADDRESS)
#define RAM_VECTORS BOARD_AT(boardVector_t, VECTOR_RAM_ADDRESS)

namespace {

std::size_t flashSize = VECTOR_RAM_ADDRESS - BOOT_FLASH_ADDRESS;

}  // namespace

unsigned char* bootFlash(std::size_t offset) {
  return BOARD_AT(unsigned char, BOOT_FLASH_ADDRESS) + offset;
}

std::size_t bootFlashSize() {
  return flashSize;
}

void setBootFlashSize(std::size_t size) {
  flashSize = size;
}

void bootFlashCommand(unsigned short command) {
  *BOARD_AT(volatile unsigned short, BOOT_FLASH_ADDRESS) = command;
}

unsigned short bootFlashWord() {
  return *BOARD_AT(volatile unsigned short, BOOT_FLASH_ADDRESS);
}

#else

#include <atomic>
#include <vector>

#include "bytes.h"

namespace {

boardVector_t romVectors[NUM_VECTORS];
boardVector_t ramVectors[NUM_VECTORS];
mcf5407_t registers;

#define MODULES (&registers)
#define ROM_VECTORS romVectors
#define RAM_VECTORS ramVectors

// Never destroyed: it is there for whatever runs last.
std::vector<unsigned char>& flashArray() {
  static std::vector<unsigned char>* const bytes =
      new std::vector<unsigned char>(BOOT_FLASH_SIZE, 0xFF);
  return *bytes;
}

// The command state of the flash. Any thread may end in a failed assertion, which uses it.
std::atomic<unsigned int> flashCommand{BOOT_FLASH_READ_ARRAY};
std::atomic<unsigned int> flashBusyReads{0};

unsigned short statusRead() {
  unsigned int left = flashBusyReads;
  while (left != 0 && !flashBusyReads.compare_exchange_weak(left, left - 1)) {
  }
  return left == 0 ? BOOT_FLASH_READY : 0;
}

}  // namespace

unsigned char* bootFlash(std::size_t offset) {
  return flashArray().data() + offset;
}

std::size_t bootFlashSize() {
  return flashArray().size();
}

void setBootFlashSize(std::size_t size) {
  flashArray().resize(size, 0xFF);
}

void bootFlashCommand(unsigned short command) {
  flashCommand = command;
}

unsigned short bootFlashWord() {
  return flashBusyReads == 0 && flashCommand == BOOT_FLASH_READ_ARRAY
             ? static_cast<unsigned short>(getBigEndian(bootFlash(0), 2))
             : statusRead();
}

void bootFlashStandInBusy(unsigned int reads) {
  flashCommand = BOOT_FLASH_READ_STATUS;
  flashBusyReads = reads;
}

#endif

boardVector_t* boardRomVectors() {
  return ROM_VECTORS;
}

boardVector_t* boardRamVectors() {
  return RAM_VECTORS;
}

const eh_t* const rom_vector_table = ROM_VECTORS;
const eh_t* const vector_table = RAM_VECTORS;

volatile mcf5407Sim_t* const pSIM = &MODULES->SIM;
volatile mcf5407Cs_t* const pCS = &MODULES->CS[0];
volatile mcf5407Dramc_t* const pDRAMC = &MODULES->DRAMC;
volatile mcf5407Timer_t* const pTIMER = &MODULES->TIMER[0];
volatile mcf5407Uart_t* const pUART = &MODULES->UART[0];
volatile mcf5407Pp_t* const pPP = &MODULES->PP;
volatile mcf5407Mbus_t* const pMBUS = &MODULES->MBUS;
volatile mcf5407Dma_t* const pDMA = &MODULES->DMA[0];
