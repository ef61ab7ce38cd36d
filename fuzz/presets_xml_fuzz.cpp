// Any bytes as a presets.xml: parsed whole or refused, and every text comes back as it was written.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "persist.h"
#include "xmlscanner.h"

namespace {

void require(bool cond) {
  if (!cond) {
    std::abort();
  }
}

// The input as a file. What the parser takes, it takes again in the same way.
void parseAsFile(const std::string& input) {
  eternity::xml_scanner scanner;
  try {
    eternity::node* const root = scanner.parse(input, "archive");
    for (const char* key : {"CV-1-I-0", "CV-2-I-0", "CV-2-I-256"}) {
      for (int index = 0; index < 3; ++index) {
        const eternity::node* const element = root->find(key, index);
        require(element != nullptr || root->find(key, index + 1) == nullptr);
        require(element == nullptr || element->name() == key);
      }
    }
  } catch (const eternity::exception& e) {
    require(e.what()[0] != 0);
  }
}

// The input as the text of one control between two others.
void writeAsText(std::string text) {
  for (char& c : text) {
    c = c == 0 ? 'z' : c;
  }
  eternity::xml_scanner scanner;
  const std::string file = "<archive>\n<CV-1-I-0>1</CV-1-I-0>\n<CV-2-I-0>" +
                           eternity::escape(text) +
                           "</CV-2-I-0>\n<CV-3-I-0>3</CV-3-I-0>\n</archive>\n";
  eternity::node* const root = scanner.parse(file, "archive");
  require(root->find("CV-2-I-0", 0)->text() == text);
  require(root->find("CV-3-I-0", 0)->text() == "3");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  parseAsFile(input);
  writeAsText(input);
  return 0;
}
