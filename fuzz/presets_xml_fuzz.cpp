// Any bytes as a presets.xml: restored or refused with a message; and as a text in one: it comes
// back as it was written.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "debug.h"
#include "presets.h"
#include "simplevarmgr.h"

namespace {

// An archive that has read `text` from a file.
struct Loaded : eternity::xml_archive {
  explicit Loaded(const std::string& text) { m_pCurElement = m_oParser.parse(text, "archive"); }
};

struct Controls {
  Controls() {
    text.init();
    Preset::Instance()->Init(table);
  }

  int numberGlobal = 77;
  char textGlobal[16] = "unit";
  char textWork[16];
  RefreshMgr group;
  ReadWriteVarMgrSimpleInt numberVar{numberGlobal, group, 0, nullptr, RANGE_CLIP};
  ReadWriteVarMgrSimpleStr textVar{group, textGlobal, textWork, sizeof textWork, nullptr, "unit"};
  CtrlReadWriteVarMgr number{1, 0, numberVar}, text{2, 0, textVar};
  CtrlReadWrite* table[3] = {&number, &text, nullptr};
};

template <class Value>
bool isRead(eternity::xml_archive& file, const char* key, Value& value, int index = 0) {
  try {
    file.read(key, value, index);
    return true;
  } catch (const eternity::exception& e) {
    CTRL_ASSERT(e.what()[0] != 0);
    return false;
  }
}

// A control without a good element keeps its value; any other has that of its first element.
void restore(Loaded& file) {
  Controls controls;
  Preset::Instance()->xml_serialize(file);
  int number = 77;
  std::string digits, text = "unit", second;
  const bool good = isRead(file, "CV-1-I-0", number);
  isRead(file, "CV-1-I-0", digits);
  char* end = nullptr;
  const long long value = std::strtoll(digits.c_str(), &end, 10);
  CTRL_ASSERT(good ? number == value && end[std::strspn(end, " \t\r\n")] == 0
                   : digits != std::to_string(static_cast<int>(value)));
  CTRL_ASSERT(isRead(file, "CV-2-I-0", text) || !isRead(file, "CV-2-I-0", second, 1));
  CTRL_ASSERT(controls.numberGlobal == number);
  CTRL_ASSERT(controls.textGlobal == std::string(text.substr(0, 15).c_str()));
}

// The input as the text of one control between two others.
void writeAsText(std::string text) {
  std::replace(text.begin(), text.end(), '\0', 'z');
  Loaded file("<archive>\n<CV-1-I-0>1</CV-1-I-0>\n<CV-2-I-0>" + eternity::escape(text) +
              "</CV-2-I-0>\n<CV-3-I-0>3</CV-3-I-0>\n</archive>\n");
  std::string back;
  int behind = 0;
  file.read("CV-2-I-0", back, 0);
  file.read("CV-3-I-0", behind, 0);
  CTRL_ASSERT(back == text && behind == 3);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  try {
    Loaded file(input);
    restore(file);
  } catch (const eternity::exception& e) {
    CTRL_ASSERT(e.what()[0] != 0);
  }
  writeAsText(input);
  return 0;
}
