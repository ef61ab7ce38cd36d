// Saving and restoring 1,000 controls: the XML layer beside plain fprintf and fscanf of the same
// values, and the whole save with its flush to the disk.
//
// Run: build/release/bin/presets_bench. Lower is better; the last lines give each alternative's
// time in units of ours, measured in the same run. The files are in a fresh directory under
// TMPDIR, or /tmp; a save in the device is the last case, on the device's disk.
#include <filereplace.h>
#include <presets.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

#include "ratio.h"

namespace {

constexpr unsigned int COUNT = 1000;
constexpr char XML[] = "bench.xml";
constexpr char PLAIN[] = "bench.txt";

class Control : public CtrlReadWrite {
 public:
  Control(unsigned int id, int v) : CtrlReadWrite(id, 0), value(v) {}
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_INT; }
  void get(void* buf, unsigned int size) override { ReadVarMgr::setBufInt(buf, size, value); }
  void init() override {}
  bool validate(const void*, unsigned int) const override { return true; }
  int set(const void* buf, unsigned int size) override {
    value = ReadWriteVarMgr::convert(buf, size);
    return 0;
  }
  int confirm() override { return 0; }

  int value;
};

std::vector<std::unique_ptr<Control>> controls;
std::vector<CtrlReadWrite*> table;

void fail(benchmark::State& state) {
  state.SkipWithError("the file cannot be written or read");
}

void saveXml(benchmark::State& state) {
  eternity::xml_archive xml;
  for (auto _ : state) {
    xml.open(XML, eternity::archive::store);
    Preset::Instance()->xml_serialize(xml);
    xml.done();
    if (xml.failed()) {
      fail(state);
    }
  }
}
BENCHMARK(saveXml)->Name("save/xml_archive")->Unit(benchmark::kMicrosecond);

// `flush`: behind every value, as the archive does.
void saveText(benchmark::State& state, bool flush) {
  for (auto _ : state) {
    FILE* const file = std::fopen(PLAIN, "w");
    if (file == nullptr) {
      fail(state);
      return;
    }
    for (const auto& control : controls) {
      std::fprintf(file, "%s %d\n", control->getName(), control->value);
      if (flush) {
        std::fflush(file);
      }
    }
    std::fclose(file);
  }
}
BENCHMARK_CAPTURE(saveText, flushed, true)
    ->Name("save/fprintf_flushed")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(saveText, buffered, false)
    ->Name("save/fprintf_buffered")
    ->Unit(benchmark::kMicrosecond);

void saveReplacing(benchmark::State& state) {
  eternity::xml_archive xml;
  for (auto _ : state) {
    FileReplacement file(XML);
    xml.open(file.temporary(), eternity::archive::store);
    Preset::Instance()->xml_serialize(xml);
    xml.done();
    file.commit();
  }
}
BENCHMARK(saveReplacing)->Name("save/xml_archive_to_disk")->Unit(benchmark::kMicrosecond);

void restoreXml(benchmark::State& state) {
  eternity::xml_archive xml;
  for (auto _ : state) {
    xml.open(XML, eternity::archive::load);
    Preset::Instance()->xml_serialize(xml);
    xml.done();
  }
}
BENCHMARK(restoreXml)->Name("restore/xml_archive")->Unit(benchmark::kMicrosecond);

// Every value has to be at its place: the simplest reader, which no change of the table survives.
void restoreText(benchmark::State& state) {
  for (auto _ : state) {
    FILE* const file = std::fopen(PLAIN, "r");
    if (file == nullptr) {
      fail(state);
      return;
    }
    char name[20];
    for (const auto& control : controls) {
      if (std::fscanf(file, "%19s %d", name, &control->value) != 2) {
        fail(state);
        break;
      }
    }
    std::fclose(file);
  }
}
BENCHMARK(restoreText)->Name("restore/fscanf")->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  std::string dir = std::filesystem::temp_directory_path() / "presets-bench-XXXXXX";
  if (mkdtemp(dir.data()) == nullptr || chdir(dir.c_str()) != 0) {
    std::perror(dir.c_str());
    return 1;
  }
  for (unsigned int i = 0; i < COUNT; ++i) {
    controls.push_back(std::make_unique<Control>(i, static_cast<int>(i * 2654435761U)));
    table.push_back(controls.back().get());
  }
  table.push_back(nullptr);
  Preset::Instance()->Init(table.data());
  const int result = runWithRatios(argc, argv);
  std::filesystem::remove_all(dir);
  return result;
}
