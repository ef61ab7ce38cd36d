// Component files from a writer of their own: checked, searched, damaged and cut.
#include "comp.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

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

// A component file in a buffer of exactly its size, so that the address sanitizer sees a byte read
// behind it.
class Image {
 public:
  explicit Image(const std::string& bytes)
      : size(bytes.size()), start(std::make_unique<unsigned char[]>(bytes.size())) {
    std::memcpy(start.get(), bytes.data(), size);
  }

  const component_t* header() const {
    return static_cast<const component_t*>(static_cast<const void*>(start.get()));
  }

  const std::size_t size;
  std::unique_ptr<unsigned char[]> start;
};

struct Checked {
  unsigned int result;
  std::string printed;
};

Checked check(const std::string& bytes, bool bounded = true) {
  const Image image(bytes);
  testing::internal::CaptureStdout();
  const unsigned int result = bounded ? validate_bin_file(image.start.get(), image.size)
                                      : validate_bin_file(image.start.get());
  return {result, testing::internal::GetCapturedStdout()};
}

// The data of `name` as the search finds it, or "(null)"; `printed` gets what it said.
std::string locate(const std::string& bytes, const char* name, std::string* printed = nullptr) {
  const Image image(bytes);
  unsigned long size = 12345;
  testing::internal::CaptureStdout();
  const unsigned char* const data = locate_file_in(image.header(), image.size, name, &size);
  const std::string said = testing::internal::GetCapturedStdout();
  if (printed != nullptr) {
    *printed = said;
  }
  if (data == nullptr) {
    EXPECT_EQ(size, 12345UL);
    return "(null)";
  }
  return std::string(data, data + size);
}

std::vector<File> randomFiles(unsigned int seed) {
  Random random(seed);
  std::vector<File> files(random.below(6));
  for (std::size_t i = 0; i < files.size(); ++i) {
    files[i].name = "file" + std::to_string(i) + std::string(random.below(46), 'x');
    for (unsigned int n = random.below(300); n > 0; --n) {
      files[i].data += static_cast<char>(random.word());
    }
  }
  return files;
}

TEST(Component, AWrittenFileIsValidAndEveryFileInItIsFound) {
  for (unsigned int seed = 0; seed < 100; ++seed) {
    const std::vector<File> files = randomFiles(seed);
    const std::string bytes = component::component(files);
    for (const bool bounded : {false, true}) {
      const Checked checked = check(bytes, bounded);
      ASSERT_EQ(checked.result, 1U) << checked.printed;
      ASSERT_EQ(checked.printed, "");
    }
    ASSERT_EQ(check(bytes + "trailing").result, 1U);
    for (const File& file : files) {
      ASSERT_EQ(locate(bytes, file.name.c_str()), file.data);
      ASSERT_EQ(locate(bytes, file.name.substr(1).c_str()), "(null)");
      const Image image(bytes);
      unsigned long size = 0;
      const unsigned char* const data = locate_file_in(image.header(), file.name.c_str(), &size);
      ASSERT_TRUE(data > image.start.get() && data <= image.start.get() + image.size);
      ASSERT_EQ(size, file.data.size());
    }
  }
}

// Where a file's parts lie, and what the check says when one of them is damaged.
struct Part {
  std::size_t end;
  std::string line;
};

std::vector<Part> partsOf(const std::vector<File>& files) {
  std::vector<Part> parts{{112, "Component header is invalid.\n"}};
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string n = std::to_string(i);
    parts.push_back({parts.back().end + 116, "Subcomponent header " + n + " is invalid.\n"});
    parts.push_back(
        {parts.back().end + files[i].data.size(), "Subcomponent data " + n + " is invalid.\n"});
  }
  return parts;
}

TEST(Component, EveryChangeOfOneByteIsReportedForThePartItIsIn) {
  const std::vector<File> files{{"a", "odd"}, {"empty", ""}, {"b", std::string(70, 'b')}};
  const std::string good = component::component(files);
  Random random(1);
  std::size_t at = 0;
  for (const Part& part : partsOf(files)) {
    for (; at < part.end; ++at) {
      std::vector<unsigned int> flips{0xFF, 1 + random.below(255)};
      for (unsigned int bit = 1; bit < 0x100; bit *= 2) {
        flips.push_back(bit);
      }
      for (const unsigned int flip : flips) {
        std::string bad = good;
        bad[at] = static_cast<char>(static_cast<unsigned char>(bad[at]) ^ flip);
        const Checked checked = check(bad);
        ASSERT_EQ(checked.result, 0U) << at;
        // The CRC's line comes first, then the one that names the part.
        const std::size_t second = checked.printed.find('\n') + 1;
        ASSERT_NE(checked.printed.find(" CRC is $"), std::string::npos) << at;
        ASSERT_EQ(checked.printed.substr(second), part.line) << at;
      }
    }
  }
  ASSERT_EQ(at, good.size());
}

TEST(Component, AFileCutAnywhereIsInvalidAndNotReadBehindItsEnd) {
  const std::vector<File> files{{"a", "odd"}, {"empty", ""}, {"b", std::string(70, 'b')}};
  const std::string good = component::component(files);
  std::size_t length = 0;
  for (const Part& part : partsOf(files)) {
    for (; length < part.end; ++length) {
      const std::string cut = good.substr(0, length);
      const Checked checked = check(cut);
      ASSERT_EQ(checked.result, 0U) << length;
      ASSERT_EQ(checked.printed, part.line) << length;
      ASSERT_EQ(locate(cut, "b"), "(null)");
      ASSERT_EQ(locate(cut, "a"), length < 112 + 116 + 3 ? "(null)" : "odd");
    }
  }
  // A size that leads past the end of memory.
  std::string huge = component::componentHeader(1) +
                     component::closed(component::text("a", 52) + component::number(0xFFFFFFFF) +
                                       component::number(0) + component::text("", 52));
  EXPECT_EQ(check(huge).printed, "Subcomponent data 0 is invalid.\n");
  EXPECT_EQ(locate(huge, "a"), "(null)");
  EXPECT_EQ(validate_bin_file(nullptr), 0U);
  EXPECT_EQ(locate_file_in(nullptr, "a", nullptr), nullptr);
}

TEST(Component, TheLinesNameTheComputedAndTheStoredCrc) {
  EXPECT_EQ(check(std::string(112, '\0')).printed,
            "component CRC is $6948 but should be $0000\nComponent header is invalid.\n");
  const std::string head = component::componentHeader(1);
  EXPECT_EQ(check(head + std::string(116, '\0')).printed,
            "subcomponent CRC is $1ea9 but should be $0000\nSubcomponent header 0 is invalid.\n");
  // A correct low half does not make up for a high half that is not 0.
  const std::string body = component::text("a", 52) + component::number(0) +
                           component::number(0x1FFFF) + component::text("", 52);
  EXPECT_EQ(check(head + component::closed(body)).printed,
            "data CRC is $ffff but should be $1ffff\nSubcomponent data 0 is invalid.\n");
  const std::string covered = body + std::string("\0\1", 2);
  const std::string low = component::number(component::crcByBits(0xFFFF, covered)).substr(2);
  EXPECT_EQ(check(head + covered + low).result, 0U);
}

TEST(Component, TheSearchGoesOnBehindDamagedDataButNotBehindADamagedHeader) {
  const std::string first = component::subcomponent({"same", "first"});
  const std::string second = component::subcomponent({"same", "second"});
  std::string badData = first;
  badData.back() ^= 1;
  std::string badHeader = first;
  badHeader[60] ^= 1;  // in the tag
  const std::string head = component::componentHeader(2);
  std::string printed;
  EXPECT_EQ(locate(head + first + second, "same", &printed), "first");
  EXPECT_EQ(printed, "");
  EXPECT_EQ(locate(head + badData + second, "same", &printed), "second");
  EXPECT_EQ(printed.substr(0, 13), "data CRC is $");
  EXPECT_EQ(locate(head + badData + second, "other", &printed), "(null)");
  EXPECT_EQ(printed, "");  // data that nobody asked for are not checked
  EXPECT_EQ(locate(head + badHeader + second, "same", &printed), "(null)");
  EXPECT_EQ(printed.substr(0, 21), "subcomponent CRC is $");
  EXPECT_EQ(locate(head + badData + badData, "same"), "(null)");
  EXPECT_EQ(locate(component::componentHeader(0), "same"), "(null)");

  // A name that fills its field runs into the size behind it.
  const std::string unended(52, 'n');
  const std::string bytes = component::component({{unended, "data"}});
  EXPECT_EQ(locate(bytes, unended.c_str()), "(null)");
}

TEST(Component, TheWatchdogIsServedOncePerChunk) {
  const struct {
    std::size_t size;
    int served;
  } cases[] = {{0, 0}, {1, 1}, {100000, 1}, {100001, 2}, {200001, 3}};
  for (const auto& each : cases) {
    const std::string bytes = component::component({{"a", std::string(each.size, 'a')}});
    timesServed = 0;
    EXPECT_EQ(check(bytes).result, 1U);
    EXPECT_EQ(timesServed, each.served) << each.size;
  }
}

class BootFlashTest : public testing::Test {
 protected:
  void program(std::size_t slot, const std::string& bytes) {
    std::memcpy(bootFlash(BOOT_SLOTS[slot]), bytes.data(), bytes.size());
  }

  std::string locateInFlash(const char* name) {
    unsigned long size = 0;
    const unsigned char* const data = locate_file(name, &size);
    return data == nullptr ? "(null)" : std::string(data, data + size);
  }
};

TEST_F(BootFlashTest, TheFirstSlotWinsAndTheSecondIsTheFallback) {
  bootFlashDesc_t desc{};
  EXPECT_EQ(getFlashDescriptor(&desc), 1);  // erased
  EXPECT_EQ(locateInFlash("app"), "(null)");
  EXPECT_EQ(getFlashDescriptor(nullptr), 1);

  program(1, component::component({{"app", "old"}, {"only2", "x"}}));
  EXPECT_EQ(getFlashDescriptor(&desc), 0);
  EXPECT_EQ(desc.numFiles, 2);
  EXPECT_EQ(locateInFlash("app"), "old");

  program(0, component::componentHeader(1, std::string(31, 'P')) +
                 component::subcomponent({"app", "new"}));
  EXPECT_EQ(locateInFlash("app"), "new");
  EXPECT_EQ(locateInFlash("only2"), "x");
  EXPECT_EQ(getFlashDescriptor(&desc), 0);
  EXPECT_EQ(std::string(desc.productId, 31), std::string(31, 'P'));
  EXPECT_STREQ(desc.componentId, "boot");
  EXPECT_EQ(std::string(desc.locationId, 6), std::string("FP-2\0\0", 6));
  EXPECT_EQ(desc.majorRev, 3);
  EXPECT_EQ(desc.minorRev, 200);
  EXPECT_STREQ(desc.revString, "3.200 beta");
  EXPECT_STREQ(desc.creationDate, "2004-02-29 12:00:00");
  EXPECT_EQ(desc.numFiles, 1);

  bootFlash(BOOT_SLOTS[0])[5] ^= 1;
  EXPECT_EQ(locateInFlash("app"), "old");
  EXPECT_EQ(getFlashDescriptor(&desc), 0);
  EXPECT_EQ(desc.numFiles, 2);
}

}  // namespace
