// Any bytes as a presets.xml: parsed whole or refused with a message.
#include <cstddef>
#include <cstdint>

#include "debug.h"
#include "persist.h"
#include "xmlscanner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  eternity::xml_scanner scanner;
  try {
    eternity::node* const root = scanner.parse(input, "archive");
    for (const char* key : {"CV-1-I-0", "CV-2-I-0", "CV-2-I-256"}) {
      for (int index = 0; index < 3; ++index) {
        const eternity::node* const element = root->find(key, index);
        CTRL_ASSERT(element != nullptr || root->find(key, index + 1) == nullptr);
        CTRL_ASSERT(element == nullptr || element->name() == key);
      }
    }
  } catch (const eternity::exception& e) {
    CTRL_ASSERT(e.what()[0] != 0);
  }
  return 0;
}
