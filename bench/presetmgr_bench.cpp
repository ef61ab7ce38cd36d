// The preset store's passes, writes and start-up, beside a plain file that keeps the same presets,
// and what the store asks of its flash.
//
// Run: build/release/bin/presetmgr_bench [--benchmark_filter=...]. Lower is better. The lines below
// the table give each alternative's time in units of ours, and then, from the counters of a
// simulated part, the cost of a flushed write and the flash work per payload byte. Files are made
// in the working directory, so run it on the disk in question.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "pfmedium_file.h"
#include "pfmedium_sim.h"
#include "presetstore.h"
#include "ratio.h"

namespace {

constexpr unsigned int PRESETS = NUM_PRESETS;
constexpr unsigned int PAYLOAD = 20;  // 300 records of 26 bytes leave 388 bytes of the block

const char* const STORE_FILE = "presetmgr_bench.flash";
const char* const PLAIN_FILE = "presetmgr_bench.plain";
const char* const PLAIN_TEMP = "presetmgr_bench.plain.new";

void stopOn(bool failed, const char* what) {
  if (failed) {
    std::perror(what);
    std::exit(1);
  }
}

void writePreset(unsigned short type, const void* data, unsigned int size) {
  PresetMgr handle;
  if (handle.openFirst(type, PM_WRITE) != ERR_OK) {
    handle.openNew(type);
  }
  stopOn(handle.write(data, size) != ERR_OK, "write");
}

void drain() {
  while (PresetMgr::flush() != 0) {
  }
}

void fillStore(PfMedium& medium, unsigned int presets) {
  pfUseMedium(&medium);
  resetPresetStore();
  PresetMgr::service();
  for (unsigned int i = 0; i < presets; ++i) {
    unsigned char payload[PAYLOAD];
    std::memset(payload, static_cast<int>(i), sizeof payload);
    writePreset(static_cast<unsigned short>(i), payload, sizeof payload);
  }
  drain();
}

// What one would write without a store: an array of the first `count` presets, rewritten as a
// whole.
struct PlainFile {
  unsigned char presets[PRESETS][PAYLOAD] = {};
  unsigned int count = PRESETS;

  // Puts the whole of it over the old content.
  void overwrite(bool sync) const {
    const int fd = open(PLAIN_FILE, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    finish(fd, sync);
  }

  // Replaces the file by a new one, so that a power cut leaves the old or the new.
  void replace() const {
    finish(open(PLAIN_TEMP, O_WRONLY | O_CREAT | O_TRUNC, 0644), true);
    stopOn(rename(PLAIN_TEMP, PLAIN_FILE) != 0, PLAIN_FILE);
  }

  void load() {
    const int fd = open(PLAIN_FILE, O_RDONLY);
    stopOn(fd < 0 || read(fd, presets, sizeof presets) != sizeof presets, PLAIN_FILE);
    close(fd);
  }

 private:
  void finish(int fd, bool sync) const {
    const std::size_t size = count * PAYLOAD;
    stopOn(fd < 0 || write(fd, presets, size) != static_cast<ssize_t>(size), PLAIN_FILE);
    stopOn(sync && fsync(fd) != 0, PLAIN_FILE);
    close(fd);
  }
};

void idlePass(benchmark::State& state) {
  PfSimMedium part;
  fillStore(part, PRESETS);
  for (auto _ : state) {
    PresetMgr::service();
  }
}
BENCHMARK(idlePass);

// The longest pass: it turns the queues into a copy of 300 presets.
void copyPass(benchmark::State& state) {
  PfSimMedium part;
  fillStore(part, PRESETS);
  for (auto _ : state) {
    state.PauseTiming();
    drain();
    presetStore.forceCopy = true;
    state.ResumeTiming();
    PresetMgr::service();
  }
}
BENCHMARK(copyPass)->Iterations(1000);

// A changed payload on one of 300 presets, in RAM: readable at once, to be stored later.
void writeInRAM(benchmark::State& state) {
  PfSimMedium part;
  fillStore(part, PRESETS);
  PresetMgr handle;
  handle.openFirst(PRESETS / 2, PM_WRITE);
  unsigned char payload[PAYLOAD] = {};
  for (auto _ : state) {
    ++payload[0];
    benchmark::DoNotOptimize(handle.write(payload, sizeof payload));
  }
}
BENCHMARK(writeInRAM)->Name("write/PresetMgr");

void writePlain(benchmark::State& state) {
  PlainFile plain;
  for (auto _ : state) {
    ++plain.presets[PRESETS / 2][0];
    plain.overwrite(false);
  }
}
BENCHMARK(writePlain)->Name("write/plain file, not synced");

// A changed payload on the disk, to survive a power cut.
void storeDurably(benchmark::State& state) {
  unlink(STORE_FILE);
  PfFileMedium file;
  stopOn(!file.open(STORE_FILE, true), STORE_FILE);
  const unsigned int presets = static_cast<unsigned int>(state.range(0));
  fillStore(file, presets);
  unsigned char payload[PAYLOAD] = {};
  for (auto _ : state) {
    ++payload[0];
    writePreset(static_cast<unsigned short>(presets / 2), payload, sizeof payload);
    drain();
  }
  file.close();
  unlink(STORE_FILE);
}
BENCHMARK(storeDurably)
    ->Name("store/PresetMgr, durable file")
    ->Arg(50)
    ->Arg(PRESETS)
    ->UseRealTime();

void storePlain(benchmark::State& state) {
  PlainFile plain;
  plain.count = static_cast<unsigned int>(state.range(0));
  for (auto _ : state) {
    ++plain.presets[plain.count / 2][0];
    plain.replace();
  }
}
BENCHMARK(storePlain)
    ->Name("store/plain file, synced and renamed")
    ->Arg(50)
    ->Arg(PRESETS)
    ->UseRealTime();

void storePlainInPlace(benchmark::State& state) {
  PlainFile plain;
  plain.count = static_cast<unsigned int>(state.range(0));
  for (auto _ : state) {
    ++plain.presets[plain.count / 2][0];
    plain.overwrite(true);
  }
}
BENCHMARK(storePlainInPlace)
    ->Name("store/plain file, synced in place, lost at a cut")
    ->Arg(50)
    ->Arg(PRESETS)
    ->UseRealTime();

// Start-up: the scan of a block with 300 records, and reading them from the plain file.
void startUp(benchmark::State& state) {
  PfSimMedium part;
  fillStore(part, PRESETS);
  for (auto _ : state) {
    resetPresetStore();
    PresetMgr handle;
    benchmark::DoNotOptimize(presetStore.ramCopyEnd);
  }
}
BENCHMARK(startUp)->Name("start-up/PresetMgr");

void startUpPlain(benchmark::State& state) {
  PlainFile plain;
  plain.overwrite(false);
  for (auto _ : state) {
    plain.load();
    benchmark::DoNotOptimize(plain);
  }
  unlink(PLAIN_FILE);
}
BENCHMARK(startUpPlain)->Name("start-up/plain file");

// Flash work of 20,000 rewrites of 4 to 20 bytes among `presets` presets, a flush behind every
// `batch` of them.
void printFlashWork(unsigned int presets, unsigned int batch) {
  constexpr unsigned int REWRITES = 20000;
  PfSimMedium part;
  fillStore(part, presets);
  part.clearCounters();
  std::mt19937 random(9);
  double bytes = 0;
  for (unsigned int i = 1; i <= REWRITES; ++i) {
    unsigned char payload[PAYLOAD];
    for (unsigned char& byte : payload) {
      byte = static_cast<unsigned char>(random());
    }
    const unsigned int size = 4 + static_cast<unsigned int>(random() % (PAYLOAD - 3));
    writePreset(static_cast<unsigned short>(random() % presets), payload, size);
    bytes += size;
    if (i % batch == 0) {
      drain();
    }
  }
  const PfSimMedium::Counters& count = part.counters();
  std::printf(
      "%4u presets, flushed every %3u rewrites: %6.2f words and %.6f erases per byte; "
      "%4.0f rewrites per erase\n",
      presets, batch, static_cast<double>(count.words) / bytes,
      static_cast<double>(count.erases) / bytes, REWRITES / static_cast<double>(count.erases));
}

// What one rewrite of PAYLOAD bytes takes until flush says that the medium holds it, at best and at
// worst of a run that copies the block more than once.
void printFlushCost(unsigned int presets) {
  PfSimMedium part;
  fillStore(part, presets);
  struct {
    unsigned long long passes, words, erases;
  } best = {~0ULL, 0, 0}, worst = {0, 0, 0};
  for (unsigned int i = 0; i < 1000; ++i) {
    unsigned char payload[PAYLOAD];
    std::memset(payload, static_cast<int>(i + 1 + i / 128), sizeof payload);
    writePreset(static_cast<unsigned short>(presets / 2), payload, sizeof payload);
    part.clearCounters();
    unsigned long long passes = 1;
    while (PresetMgr::flush() != 0) {
      ++passes;
    }
    const PfSimMedium::Counters& count = part.counters();
    if (passes > 1 && passes < best.passes) {
      best = {passes, count.words, count.erases};
    }
    if (passes > worst.passes) {
      worst = {passes, count.words, count.erases};
    }
  }
  std::printf(
      "%4u presets: at best %llu passes, %llu words; at worst %llu passes, %llu words, "
      "%llu erase\n",
      presets, best.passes, best.words, worst.passes, worst.words, worst.erases);
}

}  // namespace

int main(int argc, char** argv) {
  const int status = runWithRatios(argc, argv);
  if (status == 0) {
    std::printf("\nA rewrite of %u bytes until flush returns 0:\n", PAYLOAD);
    for (const unsigned int presets : {1U, 10U, 50U, PRESETS}) {
      printFlushCost(presets);
    }
    std::printf("\nFlash work of rewrites of 4 to 20 bytes, per payload byte:\n");
    for (const unsigned int presets : {10U, 50U, 250U}) {
      for (const unsigned int batch : {1U, 20U}) {
        printFlashWork(presets, batch);
      }
    }
    std::printf(
        "An image of 8192 bytes rewritten for each of them: %.2f words and %.6f erases per "
        "byte\n",
        FLASH_PARM_BLK_SIZE / 2.0 / 12, 1 / 12.0);
  }
  unlink(PLAIN_FILE);
  return status;
}
