#include "board.h"

#include "mbar.h"

#if BOARD_BARE_TARGET

namespace {

template <class T>
T* at(std::uintptr_t address) {
  return reinterpret_cast<T*>(address);  // NOLINT(performance-no-int-to-ptr): fixed by the board
}

volatile mcf5407_t* const MODULES = at<volatile mcf5407_t>(MBAR_ADDRESS);

}  // namespace

boardVector_t* boardRomVectors() {
  return at<boardVector_t>(BOOT_FLASH_ADDRESS);
}

boardVector_t* boardRamVectors() {
  return at<boardVector_t>(VECTOR_RAM_ADDRESS);
}

unsigned char* bootFlash(std::size_t offset) {
  return at<unsigned char>(BOOT_FLASH_ADDRESS) + offset;
}

void bootFlashCommand(unsigned short command) {
  *at<volatile unsigned short>(BOOT_FLASH_ADDRESS) = command;
}

unsigned short bootFlashWord() {
  return *at<volatile unsigned short>(BOOT_FLASH_ADDRESS);
}

#else

#include <atomic>
#include <cstring>

#include "bytes.h"

namespace {

boardVector_t romVectors[NUM_VECTORS];
boardVector_t ramVectors[NUM_VECTORS];
mcf5407_t registers;
constexpr volatile mcf5407_t* MODULES = &registers;

struct FlashArray {
  FlashArray() { std::memset(bytes, 0xFF, sizeof bytes); }
  unsigned char bytes[BOOT_FLASH_SIZE];
};

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

boardVector_t* boardRomVectors() {
  return romVectors;
}

boardVector_t* boardRamVectors() {
  return ramVectors;
}

unsigned char* bootFlash(std::size_t offset) {
  static FlashArray array;
  return array.bytes + offset;
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

volatile mcf5407Sim_t* const pSIM = &MODULES->SIM;
volatile mcf5407Cs_t* const pCS = MODULES->CS;
volatile mcf5407Dramc_t* const pDRAMC = &MODULES->DRAMC;
volatile mcf5407Timer_t* const pTIMER = MODULES->TIMER;
volatile mcf5407Uart_t* const pUART = MODULES->UART;
volatile mcf5407Pp_t* const pPP = &MODULES->PP;
volatile mcf5407Mbus_t* const pMBUS = &MODULES->MBUS;
volatile mcf5407Dma_t* const pDMA = MODULES->DMA;
