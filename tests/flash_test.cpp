// Direct access to a memory-mapped flash, on memory of the test's own.
#include "flash.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "fatal.h"
#include "random.h"

namespace {

constexpr unsigned int SIZE = 64;

// Every range of a small flash: the bytes come out in the order of their addresses, and a range
// with one bit clear anywhere is not erased. A read that depends on the host's byte order, or that
// takes a byte too many at either end, fails.
TEST(DirectFlash, EveryRangeReadsByteByByteInAddressOrder) {
  alignas(4) static unsigned char memory[SIZE + 4];
  Random random(3);
  p_flash = memory;
  for (unsigned int start = 0; start < 12; ++start) {
    for (unsigned int size = 0; size <= SIZE - start; ++size) {
      for (unsigned int i = 0; i < sizeof memory; ++i) {
        memory[i] = static_cast<unsigned char>(i + 1);
      }
      unsigned char data[SIZE + 1];
      std::memset(data, 0xAA, sizeof data);
      flash_read_block(data, size, start);
      ASSERT_EQ(memory[0] & memory[1], 0xFF) << "the read-mode command";
      ASSERT_EQ(std::memcmp(data, memory + start, size), 0) << start << " + " << size;
      ASSERT_EQ(data[size], 0xAA);

      std::memset(memory + start, 0xFF, size);
      ASSERT_TRUE(flash_is_range_erased(start, size)) << start << " + " << size;
      if (start >= 2 && size > 0) {
        memory[start + random.below(size)] ^= static_cast<unsigned char>(1U << random.below(8));
        ASSERT_FALSE(flash_is_range_erased(start, size)) << start << " + " << size;
      }
    }
  }
}

TEST(FlashParts, BlocksCoverTheWholePartOnce) {
  flash_init();
  EXPECT_EQ(p_flash_part, nullptr);
  std::set<unsigned int> ids;
  for (const flash_part_t& part : flash_part) {
    SCOPED_TRACE(part.name);
    EXPECT_TRUE(ids.insert(part.dev_id).second);
    unsigned int address = 0;
    unsigned int smallest = part.size;
    for (unsigned int block = 0; block < part.blocks; ++block) {
      ASSERT_EQ(part.b2a(block), address);
      ASSERT_EQ(part.a2b(address), block);
      const unsigned int end = block + 1 < part.blocks ? part.b2a(block + 1) : part.size;
      ASSERT_EQ(part.a2b(end - 1), block);
      smallest = std::min(smallest, end - address);
      address = end;
    }
    // Parts with parameter blocks have ones of 8 KiB, which the preset store needs.
    EXPECT_EQ(smallest, std::strstr(part.name, "C3") != nullptr ? 8192U : 131072U);
    EXPECT_FATAL(part.a2b(part.size), "addr < SIZE");
    EXPECT_FATAL(part.b2a(part.blocks), "block < BLOCKS");
  }
}

}  // namespace
