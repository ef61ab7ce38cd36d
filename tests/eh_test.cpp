// Faults and interrupts of the board: on the memory that stands for it here, and, as a second
// program with the other half of the board layer, on memory mapped at the board's addresses.
#include "eh.h"

#include <assert.h>  // declares a __assert of its own
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <thread>

#include "board.h"
#include "comp.h"
#include "component_writer.h"
#include "debug.h"
#include "fatal.h"
#include "mbar.h"

namespace {

void special() {}
void other() {}

#if BOARD_BARE_TARGET

// What a static constructor finds that runs in front of all others.
const volatile void* early[4];
__attribute__((constructor(101))) void lookEarly() {
  early[0] = pSIM;
  early[1] = pDMA;
  early[2] = rom_vector_table;
  early[3] = vector_table;
}

void mapAt(std::uintptr_t address, std::size_t size) {
  void* const place = reinterpret_cast<void*>(address);
  // Shared, so that the thread below sees what the process of a death test writes.
  if (mmap(place, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE,
           -1, 0) != place) {
    std::perror("the board's memory cannot be mapped");
    std::abort();
  }
}

const bool mapped = [] {
  mapAt(BOOT_FLASH_ADDRESS, BOOT_FLASH_SIZE);
  mapAt(VECTOR_RAM_ADDRESS, 4096);
  mapAt(MBAR_ADDRESS, 4096);
  // Plays a flash that is busy for a while after the status command.
  std::thread([] {
    for (;;) {
      usleep(1000);
      if (bootFlashWord() == BOOT_FLASH_READ_STATUS) {
        bootFlashCommand(BOOT_FLASH_READY);
      }
    }
  }).detach();
  return true;
}();
void makeFlashBusy() {}
constexpr unsigned short WORD_IN_THE_END = BOOT_FLASH_READ_ARRAY;  // memory keeps the command

TEST(Board, EverythingStandsAtTheBoardsAddressesBeforeAnyConstructorRuns) {
  const auto pointer = [](std::uintptr_t address) {
    return reinterpret_cast<const volatile void*>(address);
  };
  EXPECT_EQ(early[0], pointer(0x80000000));
  EXPECT_EQ(early[1], pointer(0x80000300));
  EXPECT_EQ(early[2], pointer(0x08000000));
  EXPECT_EQ(early[3], pointer(0x40000000));
  const std::string file = component::component({{"app", "x"}});
  std::memcpy(bootFlash(BOOT_SLOTS[1]), file.data(), file.size());
  EXPECT_EQ(locate_file("app", nullptr), pointer(0x08080000 + 112 + 116));
  setBootFlashSize(BOOT_SLOTS[1] + file.size() - 1);
  EXPECT_EQ(locate_file("app", nullptr), nullptr);
}

#else

void makeFlashBusy() {
  bootFlashStandInBusy(5);
}
constexpr unsigned short WORD_IN_THE_END = 0x1111;

#endif

TEST(Eh, InitBuildsTheTableFromTheBootFlashAndMasksEverySource) {
  const auto fromFlash = [](unsigned int v) { return v == 0 || v == 1 || v == 47; };
  for (unsigned int v = 0; v < NUM_VECTORS; ++v) {
    boardRomVectors()[v] = fromFlash(v) ? special : other;
  }
  eh_init(special);
  EXPECT_EQ(user_exception_debug, special);
  for (unsigned int v = 0; v < NUM_VECTORS; ++v) {
    EXPECT_EQ(vector_table[v] == special, fromFlash(v)) << v;
    EXPECT_EQ(vector_table[v] == fault_handler, !fromFlash(v) && v != 24) << v;
  }
  vector_table[24]();  // ignores the interrupt
  vector_table[2]();
  fault_dump(nullptr);
  EXPECT_EQ(pSIM->IMR, 0xFFFFFFFF);
  eh_imr_enable(0xFFFFFFFF);
  eh_imr_disable(3);
  EXPECT_EQ(pSIM->IMR, 3U);
  pSIM->IMR = 0xFF;  // the register is not read back
  eh_imr_enable(1);
  EXPECT_EQ(pSIM->IMR, 2U);
}

TEST(Eh, SetTakesTheNextFreeVectorWhenNoneIsGiven) {
  for (unsigned int expected = 64; expected < NUM_VECTORS; ++expected) {
    ASSERT_EQ(eh_set(0, other), expected);
    ASSERT_EQ(vector_table[expected], other);
  }
  EXPECT_FATAL(eh_set(0, other), "used < NUM_VECTORS");
  EXPECT_EQ(eh_set(255, special), 255U);
  EXPECT_FATAL(eh_set(256, other), "used < NUM_VECTORS");
}

TEST(Eh, AFaultFrameReadsAsTheProcessorStacksIt) {
  const std::uint32_t words[2] = {0x4u << 28 | 0x2u << 26 | 0x61u << 18 | 0x1u << 16 | 0x2704,
                                  0xDEADBEEF};
  exception_frame_s frame;
  std::memcpy(&frame, words, sizeof frame);
  EXPECT_TRUE(frame.format == 4 && frame.fs_hi == 2 && frame.vector == 0x61 && frame.fs_lo == 1);
  EXPECT_TRUE(frame.sr == 0x2704 && frame.pc == 0xDEADBEEF);
}

// A name too many or too few in the table moves those behind it.
TEST(Eh, NamesStandAtTheirVectors) {
  EXPECT_STREQ(vector_name[2], "Access error");
  EXPECT_STREQ(vector_name[25], "Level 1 autovector");
  EXPECT_STREQ(vector_name[61], "Unsupported instruction");
}

TEST(AssertDeathTest, BringsTheBootFlashBackToReadModeBeforeTheAbort) {
  std::memset(bootFlash(0), 0x11, 2);  // an array that does not look like a ready status
  const auto onAbort = [](int) { _exit(bootFlashWord() == WORD_IN_THE_END ? 7 : 8); };
  EXPECT_EXIT(
      {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        signal(SIGABRT, onAbort);
        makeFlashBusy();
        __assert("x > 0", "table.c", 12);
      },
      testing::ExitedWithCode(7), "^Assertion failed: x > 0, file table.c, line 12\n$");
}

// Standard output, here a file, is buffered, and nothing is unwound: a report would be lost there.
TEST(AssertDeathTest, AFailedConditionIsNamedWithFunctionFileAndLine) {
  const std::string here = std::string(", function TestBody, file ") + __FILE__ + ", line ";
  EXPECT_FATAL(CTRL_ASSERT(here.empty()), "Assertion failed: here.empty()" + here);
  const std::string longText(5000, 'c');
  EXPECT_FATAL(ctrlAssertFailed(longText.c_str(), "table.c", 3, "lookUp"),
               "ccc, function lookUp, file table.c, line 3\n");
}

}  // namespace
