// Packing and unpacking 100 variables, beside a copy of the same values as a plain struct.
//
// Run: build/release/bin/presetmake_bench. The struct is what an image would be without fields: one
// 32-bit word per number and whole words per text. It has no versions and no bounds, and its copy
// changes no variable; it shows what the packing costs and what it saves.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "presetrecall.h"
#include "presetvarmgr.h"
#include "ratio.h"
#include "simplevarmgr.h"

namespace {

constexpr unsigned int SWITCHES = 40;
constexpr unsigned int LEVELS = 40;
constexpr unsigned int GAINS = 12;
constexpr unsigned int NAMES = 8;
constexpr unsigned int VARIABLES = SWITCHES + LEVELS + GAINS + NAMES;
static_assert(VARIABLES == 100, "the list of this benchmark");
constexpr unsigned int NAME_SIZE = 16;

struct Values {
  int switches[SWITCHES];
  int levels[LEVELS];
  int gains[GAINS];
  char names[NAMES][NAME_SIZE];
};

const bounds_t LEVEL[] = {{0, 1000}, BOUNDS_END};
const bounds_t GAIN[] = {{-100, -100}, {-60, 12}, BOUNDS_END};

// A device with its variables on `values`, in groups of 32 as a refresh group allows.
class Device {
 public:
  Device() {
    std::mt19937 random(1);
    for (int& v : values.switches) {
      v = static_cast<int>(random() % 2);
      addInt(new ReadWriteVarMgrSimpleBool(v, group(), ReadWriteVarMgrBool::OFF, RANGE_WRAP));
    }
    for (int& v : values.levels) {
      v = static_cast<int>(random() % 1001);
      addInt(new ReadWriteVarMgrSimpleInt(v, group(), 0, LEVEL, RANGE_CLIP));
    }
    for (int& v : values.gains) {
      v = static_cast<int>(random() % 73) - 60;
      addInt(new ReadWriteVarMgrSimpleInt(v, group(), 0, GAIN, RANGE_CLIP));
    }
    for (unsigned int i = 0; i < NAMES; ++i) {
      std::snprintf(values.names[i], NAME_SIZE, "channel %u", i);
      auto* const var =
          new ReadWriteVarMgrSimpleStr(group(), values.names[i], working[i], NAME_SIZE,
                                       ReadWriteVarMgrStr::BOUNDS_PRINTABLE, nullptr);
      vars.emplace_back(var);
      add(new PresetFieldVarStr(*var, scratch, NAME_SIZE, PresetFieldVarStr::MODE_AUTO));
    }
    list.push_back({0, 0, nullptr});
    initPreset(list.data());
    refreshAll();
  }

  int pack() { return createPreset(image, sizeof image, 1, list.data()); }
  recall_t unpack(unsigned int length) {
    return recallPreset(image, length, 1, list.data(), RECALL_KEEP_NEWER, undo, sizeof undo);
  }
  void refreshAll() {
    for (const auto& g : groups) {
      g->setRefresh();
    }
  }

  Values values{};
  Values copy{};

 private:
  RefreshMgr& group() {
    if (vars.size() % 32 == 0) {
      groups.emplace_back(new RefreshMgr);
    }
    return *groups.back();
  }
  template <class Var>
  void addInt(Var* var) {
    vars.emplace_back(var);
    add(new PresetFieldVarInt(*var));
  }
  void add(PresetField* field) {
    fields.emplace_back(field);
    list.push_back({0, PRESET_FIELD_VALID, field});
  }

  char working[NAMES][NAME_SIZE];
  unsigned char scratch[NAME_SIZE];
  unsigned char image[1024];
  unsigned char undo[NAMES * NAME_SIZE];
  std::vector<std::unique_ptr<RefreshMgr>> groups;
  std::vector<std::unique_ptr<ReadWriteVarMgr>> vars;
  std::vector<std::unique_ptr<PresetField>> fields;
  std::vector<verPresetField_t> list;
};

Device device;
const unsigned int length = static_cast<unsigned int>(device.pack());

void pack(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(device.pack());
  }
}

void unpack(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(device.unpack(length));
  }
}

void structOut(benchmark::State& state) {
  for (auto _ : state) {
    std::memcpy(&device.copy, &device.values, sizeof(Values));
    benchmark::ClobberMemory();
  }
}

void structIn(benchmark::State& state) {
  for (auto _ : state) {
    std::memcpy(&device.values, &device.copy, sizeof(Values));
    benchmark::ClobberMemory();
  }
}

}  // namespace

int main(int argc, char** argv) {
  device.copy = device.values;
  device.values = {};
  if (device.unpack(length) != RECALL_OK ||
      std::memcmp(&device.copy, &device.values, sizeof(Values)) != 0) {
    std::puts("the image does not bring the values back");
    return EXIT_FAILURE;
  }
  benchmark::RegisterBenchmark("pack 100 variables/struct copy", structOut);
  benchmark::RegisterBenchmark("pack 100 variables/createPreset", pack);
  benchmark::RegisterBenchmark("unpack 100 variables/struct copy", structIn);
  benchmark::RegisterBenchmark("unpack 100 variables/recallPreset", unpack);
  const int result = runWithRatios(argc, argv);
  std::printf("image: %u bytes; the same values in 32-bit words: %zu bytes; ratio %.2f\n", length,
              sizeof(Values), static_cast<double>(length) / sizeof(Values));
  return result;
}
