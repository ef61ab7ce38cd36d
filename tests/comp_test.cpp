// Component files from a writer of their own: checked, searched, damaged and cut.
#include "comp.h"

#include <gtest/gtest.h>

#include <cstring>

#include "board.h"
#include "component_writer.h"
#include "hwt.h"
#include "random.h"

using component::File;

namespace {
int timesServed = 0;
}

// The board's watchdog, in place of the library's empty operation.
void hwt_service() {
  ++timesServed;
}

namespace {

// A file in a buffer of exactly its size: the address sanitizer sees a byte read behind it.
using Image = std::vector<unsigned char>;

const component_t* headerOf(const Image& image) {
  return static_cast<const component_t*>(static_cast<const void*>(image.data()));
}

// What the check says of a file: nothing when it is valid.
std::string check(const std::string& bytes) {
  const Image image(bytes.begin(), bytes.end());
  testing::internal::CaptureStdout();
  const unsigned int result = validate_bin_file(image.data(), image.size());
  std::string said = testing::internal::GetCapturedStdout();
  EXPECT_EQ(result, said.empty() ? 1U : 0U);
  return said;
}

// What the search says, and the data of `name` behind it, or "(null)".
std::string locate(const std::string& bytes, const std::string& name) {
  const Image image(bytes.begin(), bytes.end());
  unsigned long size = 12345;
  testing::internal::CaptureStdout();
  const unsigned char* const data =
      locate_file_in(headerOf(image), image.size(), name.c_str(), &size);
  std::string said = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(data != nullptr || size == 12345);
  return said + (data == nullptr ? "(null)" : std::string(data, data + size));
}

TEST(Component, EveryFileIsFoundAndEveryDamagedByteOrCutReportedForItsPart) {
  Random random(1);
  for (unsigned int round = 0; round < 12; ++round) {
    std::vector<File> files(round % 4);
    // Where the file's parts end, and what the check says when one of them is damaged.
    std::vector<std::pair<std::size_t, std::string>> parts{{112, "Component header is invalid.\n"}};
    for (std::size_t i = 0; i < files.size(); ++i) {
      files[i].name = "file" + std::to_string(i) + std::string(random.below(46), 'x');
      for (unsigned int n = i == 1 ? 0 : random.below(80); n > 0; --n) {
        files[i].data += static_cast<char>(random.word());
      }
      const std::string number = std::to_string(i) + " is invalid.\n";
      parts.push_back({parts.back().first + 116, "Subcomponent header " + number});
      parts.push_back({parts.back().first + files[i].data.size(), "Subcomponent data " + number});
    }
    const std::string good = component::component(files);
    const Image image(good.begin(), good.end());
    ASSERT_EQ(validate_bin_file(image.data()), 1U);
    ASSERT_EQ(check(good), "");
    ASSERT_EQ(check(good + "trailing"), "");
    for (const File& file : files) {
      ASSERT_EQ(locate(good, file.name), file.data);
      ASSERT_EQ(locate(good, file.name.substr(1)), "(null)");
      ASSERT_NE(locate_file_in(headerOf(image), file.name.c_str(), nullptr), nullptr);
    }
    std::size_t at = 0;
    for (const auto& [end, line] : parts) {
      for (; at < end; ++at) {
        const std::string cut = good.substr(0, at);
        ASSERT_EQ(check(cut), line) << at;
        for (std::size_t i = 0; i < files.size(); ++i) {
          ASSERT_EQ(locate(cut, files[i].name),
                    at < parts[2 * i + 2].first ? "(null)" : files[i].data);
        }
        std::string bad = good;
        const unsigned int flip = random.oneIn(2) ? 1U << random.below(8) : 1 + random.below(255);
        bad[at] = static_cast<char>(static_cast<unsigned char>(bad[at]) ^ flip);
        const std::string said = check(bad);
        // The CRC's line comes first, then the one that names the part.
        ASSERT_NE(said.find(" CRC is $"), std::string::npos) << at;
        ASSERT_EQ(said.substr(said.find('\n') + 1), line) << at;
      }
    }
    ASSERT_EQ(at, good.size());
  }
}

TEST(Component, TheLinesNameTheComputedAndTheStoredCrc) {
  const std::string head = component::componentHeader(1);
  const auto body = [](unsigned long size, unsigned long crc) {
    return component::text("a", 52) + component::number(size) + component::number(crc) +
           component::text("", 52);
  };
  EXPECT_EQ(check(std::string(112, '\0')),
            "component CRC is $6948 but should be $0000\nComponent header is invalid.\n");
  EXPECT_EQ(check(head + std::string(116, '\0')),
            "subcomponent CRC is $1ea9 but should be $0000\nSubcomponent header 0 is invalid.\n");
  EXPECT_EQ(check(head + component::closed(body(0, 0x1FFFF))),
            "data CRC is $ffff but should be $1ffff\nSubcomponent data 0 is invalid.\n");
  const std::string huge = head + component::closed(body(0xFFFFFFFF, 0));
  EXPECT_EQ(check(huge), "Subcomponent data 0 is invalid.\n");
  EXPECT_EQ(locate(huge, "a"), "(null)");
  // A correct low half of a CRC does not make up for a high half that is not 0.
  const std::string covered = body(0, 0xFFFF) + std::string("\0\1", 2);
  EXPECT_NE(
      check(head + covered + component::number(component::crcByBits(0xFFFF, covered)).substr(2)),
      "");
  EXPECT_EQ(validate_bin_file(nullptr), 0U);
  EXPECT_EQ(locate_file_in(nullptr, "a", nullptr), nullptr);
}

TEST(Component, TheSearchGoesOnBehindDamagedDataButNotBehindADamagedHeader) {
  const std::string head = component::componentHeader(2);
  const std::string first = component::subcomponent({"same", "first"});
  const std::string second = component::subcomponent({"same", "second"});
  std::string badData = first;
  badData.back() ^= 1;
  std::string badHeader = first;
  badHeader[60] ^= 1;  // in the tag
  const std::string found = locate(head + badData + second, "same");
  EXPECT_EQ(found.substr(found.find('\n')), "\nsecond");
  EXPECT_EQ(locate(head + badData + second, "other"), "(null)") << "data that nobody asked for";
  EXPECT_EQ(locate(head + badHeader + second, "same").substr(0, 21), "subcomponent CRC is $");
  // A name that fills its field runs into the size behind it.
  const std::string unended(52, 'n');
  EXPECT_EQ(locate(component::component({{unended, "data"}}), unended), "(null)");
}

TEST(Component, TheWatchdogIsServedOncePerChunk) {
  for (const std::size_t size : {0U, 1U, 100000U, 100001U, 200001U}) {
    timesServed = 0;
    EXPECT_EQ(check(component::component({{"a", std::string(size, 'a')}})), "");
    EXPECT_EQ(timesServed, (size + 99999) / 100000) << size;
  }
}

void program(std::size_t slot, const std::string& bytes) {
  std::memcpy(bootFlash(BOOT_SLOTS[slot]), bytes.data(), bytes.size());
}

// The data of a file in the boot flash behind the number of files that the descriptor has.
std::string inFlash(const char* name) {
  bootFlashDesc_t desc{};
  unsigned long size = 0;
  const int result = getFlashDescriptor(&desc);
  const unsigned char* const data = locate_file(name, &size);
  return (result != 0 ? "-" : std::to_string(desc.numFiles)) +
         (data == nullptr ? "(null)" : std::string(data, data + size));
}

TEST(BootFlash, TheFirstSlotWinsAndTheSecondIsTheFallback) {
  EXPECT_EQ(inFlash("app"), "-(null)") << "erased";
  program(1, component::component({{"app", "old"}, {"only2", "x"}}));
  EXPECT_EQ(inFlash("app"), "2old");
  program(0, component::componentHeader(1, std::string(31, 'P')) +
                 component::subcomponent({"app", "new"}));
  EXPECT_EQ(inFlash("app"), "1new");
  EXPECT_EQ(inFlash("only2"), "1x");
  bootFlashDesc_t desc{};
  EXPECT_EQ(getFlashDescriptor(&desc), 0);
  EXPECT_EQ(std::string(desc.productId, 31), std::string(31, 'P'));
  EXPECT_EQ(desc.componentId + std::string(desc.locationId, 6), std::string("bootFP-2\0\0", 10));
  EXPECT_EQ(desc.majorRev * 1000 + desc.minorRev, 3200);
  EXPECT_EQ(desc.revString + std::string(desc.creationDate), "3.200 beta2004-02-29 12:00:00");
  EXPECT_EQ(getFlashDescriptor(nullptr), 1);
  bootFlash(BOOT_SLOTS[0])[5] ^= 1;
  EXPECT_EQ(inFlash("app"), "2old");
  setBootFlashSize(2 * BOOT_FLASH_SIZE);  // a larger part: what is in it stays
  EXPECT_EQ(inFlash("app"), "2old");
  program(1, component::component({{"first", std::string(BOOT_FLASH_SIZE, 'f')}, {"app", "far"}}));
  EXPECT_EQ(inFlash("app"), "2far");
  setBootFlashSize(BOOT_FLASH_SIZE);  // the end of the part is in the first file
  EXPECT_EQ(inFlash("app"), "2(null)");
  for (const std::size_t size : {BOOT_SLOTS[1] + 111, BOOT_SLOTS[0], std::size_t{0}}) {
    setBootFlashSize(size);
    EXPECT_EQ(inFlash("app"), "-(null)") << size;
  }
}

}  // namespace
