// Any bytes as a factory image: taken whole or not at all, and read inside its buffer only.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "presetmgr.h"
#include "presetstore.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[size]);
  std::memcpy(exact.get(), data, size);
  const int bad = PresetMgr::setFactory(exact.get(), static_cast<unsigned int>(size));
  std::size_t found = 0;
  for (const preset_t& preset : presetStore.factory) {
    if (preset.erased) {
      continue;
    }
    PresetMgr handle;
    static unsigned char payload[0x10000];
    unsigned int len = sizeof payload;
    if (handle.openFirstFactory(preset.serv[0].type) != ERR_OK ||
        handle.read(payload, len) != ERR_OK || len == 0 || len > size) {
      std::abort();
    }
    ++found;
  }
  if (bad != 0 && found != 0) {
    std::abort();
  }
  PresetMgr::setFactory(nullptr, 0);
  return 0;
}
