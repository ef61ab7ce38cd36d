// Any bytes as a factory image: taken whole or not at all, and each preset reads as its bytes.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>

#include "bytes.h"
#include "debug.h"
#include "presetmgr.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[size]);
  std::memcpy(exact.get(), data, size);
  const bool taken = PresetMgr::setFactory(exact.get(), static_cast<unsigned int>(size)) == 0;
  bool good = true;
  std::map<unsigned short, PresetMgr> handles;  // each on the latest record of its type
  std::size_t at = 0;
  for (unsigned int id = 0; good && id < NUM_PRESETS && size - at >= 4; ++id) {
    const unsigned short type = static_cast<unsigned short>(getBigEndian(data + at, 2));
    const unsigned int length = getBigEndian(data + at + 2, 2);
    const auto [handle, first] = handles.try_emplace(type);
    const int opened = first ? handle->second.openFirstFactory(type) : handle->second.openNext();
    CTRL_ASSERT((opened == ERR_OK) == taken);
    static unsigned char payload[0x10000];
    unsigned int len = sizeof payload;
    at += 4 + length + length % 2;
    good = type <= 0x1FFF && length > 0 && at <= size;
    CTRL_ASSERT(!taken || handle->second.read(payload, len) == ERR_OK);
    CTRL_ASSERT(!taken || (good && len == length &&
                           std::memcmp(payload, data + at - length - length % 2, length) == 0));
  }
  CTRL_ASSERT(good == taken);
  for (auto& [type, handle] : handles) {
    CTRL_ASSERT(handle.openNext() == ERR_NOT_FOUND);
  }
  handles.clear();
  PresetMgr::setFactory(nullptr, 0);
  return 0;
}
