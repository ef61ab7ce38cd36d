// The CRC-16 and the check of a component file over 16 MiB, beside two CRCs of Boost.
//
// Run: build/release/bin/crc_bench. boost::augmented_crc has the same result; boost::crc_optimal is
// the common direct form of the same polynomial. Short calls take the portable table form on every
// processor; long ones multiply where the processor can.
#include <algorithm>
#include <boost/crc.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "comp.h"
#include "crc.h"
#include "ratio.h"

namespace {

constexpr std::size_t SIZE = std::size_t{16} << 20;
using DirectCrc = boost::crc_optimal<16, 0x1021, 0xFFFF, 0, false, false>;

// A component file whose one subcomponent has SIZE bytes of data.
std::vector<unsigned char> makeFile() {
  std::vector<unsigned char> file(sizeof(component_t) + sizeof(subcomp_t) + SIZE);
  std::mt19937 random(1);
  std::generate(file.begin(), file.end(),
                [&random] { return static_cast<unsigned char>(random() & 0xFF); });
  component_t header{};
  header.num_subcomps = 1;
  std::memcpy(file.data(), &header, sizeof header);
  header.crc = calcCRC16(0xFFFF, file.data(), offsetof(component_t, crc) + 2);
  std::memcpy(file.data(), &header, sizeof header);

  unsigned char* const at = file.data() + sizeof header;
  subcomp_t sub{};
  std::strcpy(sub.filename, "data");
  sub.filesize = SIZE;
  sub.filecrc = calcCRC16(0xFFFF, at + sizeof sub, SIZE);
  std::memcpy(at, &sub, sizeof sub);
  sub.crc = calcCRC16(0xFFFF, at, offsetof(subcomp_t, crc) + 2);
  std::memcpy(at, &sub, sizeof sub);
  return file;
}

const std::vector<unsigned char> file = makeFile();
const unsigned char* const data = file.data() + sizeof(component_t) + sizeof(subcomp_t);

unsigned int ours() {
  return calcCRC16(0xFFFF, data, SIZE);
}

unsigned int oursInShortCalls() {
  unsigned short crc = 0xFFFF;
  for (std::size_t i = 0; i < SIZE; i += 32) {
    crc = calcCRC16(crc, data + i, 32);
  }
  return crc;
}

unsigned int validate() {
  return validate_bin_file(file.data(), file.size());
}

unsigned int boostAugmented() {
  return boost::augmented_crc<16, 0x1021>(data, SIZE, 0xFFFF);
}

unsigned int boostDirect() {
  DirectCrc crc;
  crc.process_bytes(data, SIZE);
  return crc.checksum();
}

template <unsigned int (*FUNCTION)()>
void run(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(FUNCTION());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(SIZE));
}

template <unsigned int (*OURS)()>
void compare(const std::string& what, const std::string& name) {
  benchmark::RegisterBenchmark((what + "/" + name).c_str(), run<OURS>);
  benchmark::RegisterBenchmark((what + "/boost::augmented_crc").c_str(), run<boostAugmented>);
  benchmark::RegisterBenchmark((what + "/boost::crc_optimal").c_str(), run<boostDirect>);
}

}  // namespace

int main(int argc, char** argv) {
  if (ours() != boostAugmented() || oursInShortCalls() != ours() || validate() != 1) {
    std::puts("the results differ");
    return EXIT_FAILURE;
  }
  compare<ours>("16 MiB at once", "calcCRC16");
  compare<oursInShortCalls>("16 MiB in calls of 32 bytes", "calcCRC16");
  compare<validate>("component file of 16 MiB", "validate_bin_file");
  return runWithRatios(argc, argv);
}
