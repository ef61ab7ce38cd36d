#include "devicetext.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>

namespace device {

Line& Line::clear() {
  used = 0;
  start[0] = 0;
  return *this;
}

Line& Line::put(const char* text, std::size_t length) {
  const std::size_t n = std::min(length, size - 1 - used);
  std::memcpy(start + used, text, n);
  used += n;
  start[used] = 0;
  return *this;
}

Line& Line::put(const char* text) {
  return put(text, std::strlen(text));
}

Line& Line::put(char c) {
  return put(&c, 1);
}

Line& Line::put(int number) {
  char digits[12];
  const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  return put(digits, static_cast<std::size_t>(end - digits));
}

Line& Line::put(unsigned int number) {
  char digits[12];
  const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  return put(digits, static_cast<std::size_t>(end - digits));
}

void skipBlanks(const char*& text) {
  text += std::strspn(text, " \t");
}

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// Reads digits behind the sign, which decides what is in range.
template <class Number>
bool parse(const char*& text, Number& number) {
  const bool negative = std::is_signed_v<Number> && *text == '-';
  const bool sign = std::is_signed_v<Number> && (negative || *text == '+');
  const char* const digits = text + (sign ? 1 : 0);
  const bool hex = digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
  const char* const from = digits + (hex ? 2 : 0);
  unsigned int size;
  const auto read = std::from_chars(from, from + std::strlen(from), size, hex ? 16 : 10);
  const unsigned int most = static_cast<unsigned int>(std::numeric_limits<Number>::max());
  if (read.ec != std::errc() || size > most + (negative ? 1U : 0U)) {
    return false;
  }
  text = read.ptr;
  number = static_cast<Number>(negative ? 0 - size : size);
  return true;
}

}  // namespace

bool parseNumber(const char*& text, int& number) {
  return parse(text, number);
}

bool parseNumber(const char*& text, unsigned int& number) {
  return parse(text, number);
}

namespace {

// The word at `text`.
std::size_t wordLength(const char* text) {
  return std::strcspn(text, " \t=");
}

void noSuchControl(const Controls& device, const char* text, Line& why) {
  why.clear();
  const std::size_t length = wordLength(text);
  if (length == 0) {
    why.put("which control? there are");
  } else {
    why.put("no control \"").put(text, length).put("\"; there are");
  }
  const char* between = " ";
  for (const Family* const f : device) {
    why.put(between).put(f->facts().name);
    between = ", ";
  }
}

// Reads a subscript, "[2]" or a number of its own, if there is one at `text`.
enum Found { NONE, SUBSCRIPT, BAD };
Found parseSubscript(const char*& text, unsigned int& sub) {
  const char* at = text;
  skipBlanks(at);
  const bool bracket = *at == '[';
  if (bracket) {
    ++at;
    skipBlanks(at);
  }
  if (!parseNumber(at, sub)) {
    return bracket || isDigit(*at) ? BAD : NONE;
  }
  if (bracket) {
    skipBlanks(at);
    if (*at++ != ']') {
      return BAD;
    }
  } else if (*at == ':') {
    return NONE;  // the id of the next control
  }
  text = at;
  return SUBSCRIPT;
}

// Reads up to ndim subscripts; false when one of them is none of the family's.
bool parseSubscripts(const char*& text, const Facts& f, unsigned int* sub, unsigned int& n) {
  for (n = 0; n < f.ndim; ++n) {
    const Found found = parseSubscript(text, sub[n]);
    if (found == NONE) {
      sub[n] = 0;
      return true;
    }
    if (found == BAD || sub[n] >= f.dim[n]) {
      return false;
    }
  }
  return *text != '[';
}

// "20:258"
bool parseByNumber(const Controls& device, const char*& text, Selection& found, Line& why,
                   bool& isNumber) {
  const char* at = text;
  unsigned int id;
  unsigned int index;
  isNumber = parseNumber(at, id) && *at++ == ':' && parseNumber(at, index);
  if (!isNumber) {
    return false;
  }
  const Control control = device.findNumber(id, index);
  if (control.family == nullptr) {
    why.clear().put("no control ").put(id).put(':').put(index);
    return false;
  }
  text = at;
  found = {control.family, control.member, 1};
  return true;
}

}  // namespace

bool parseControls(const Controls& device, const char*& text, Selection& found, Line& why) {
  skipBlanks(text);
  bool isNumber;
  if (parseByNumber(device, text, found, why, isNumber) || isNumber) {
    return found.family != nullptr;
  }
  const std::size_t length = std::strcspn(text, " \t[=");
  const Family* const family = device.findFamily(text, length);
  if (family == nullptr) {
    noSuchControl(device, text, why);
    return false;
  }
  const Facts& f = family->facts();
  const char* at = text + length;
  unsigned int sub[2] = {0, 0};
  unsigned int given;
  if (!parseSubscripts(at, f, sub, given)) {
    const std::size_t read = static_cast<std::size_t>(at - text);
    why.clear().put("no control \"").put(text, std::max(read, wordLength(text)));
    why.put("\"; there is ");
    writeFamily(*family, why);
    return false;
  }
  text = at;
  found = {family, sub[0] * f.dim[1] + sub[1],
           given == f.ndim ? 1
           : given == 0    ? family->size()
                           : f.dim[1]};
  return true;
}

bool parseControl(const Controls& device, const char*& text, Control& control, Line& why) {
  Selection found;
  if (!parseControls(device, text, found, why)) {
    return false;
  }
  if (found.count > 1) {
    why.clear().put("which one? ");
    writeFamily(*found.family, why);
    why.put(", as in ");
    writeName(found.control(0), why);
    return false;
  }
  control = found.control(0);
  return true;
}

void writeName(const Control& control, Line& line) {
  const Facts& f = control.family->facts();
  line.put(f.name);
  for (unsigned int i = 0; i < f.ndim; ++i) {
    line.put('[').put(control.subscript(i)).put(']');
  }
}

void writeFamily(const Family& family, Line& line) {
  const Facts& f = family.facts();
  line.put(f.name);
  for (unsigned int i = 0; i < f.ndim; ++i) {
    line.put("[0..").put(f.dim[i] - 1).put(']');
  }
}

void writeUnit(const Family& family, Line& line) {
  const char* const unit = family.facts().unit;
  if (*unit != 0) {
    line.put(' ').put(unit);
  }
}

const char* kindName(Kind kind) {
  switch (kind) {
    case Kind::INTEGER:
      return "integer";
    case Kind::BOOLEAN:
      return "boolean";
    case Kind::CHOICE:
      return "choice";
    case Kind::TEXT:
      return "text";
    case Kind::READING:
      return "reading";
    case Kind::COMMAND:
      return "command";
  }
  return "";
}

const char* valueName(const Family& family, unsigned int i) {
  static const char* const SWITCH[] = {"off", "on"};
  const Facts& f = family.facts();
  if (f.type == DATA_TYPE_BOOL) {
    return i < 2 ? SWITCH[i] : nullptr;
  }
  return i < f.numChoices ? f.choices[i].name : nullptr;
}

namespace {

void writeValueNames(const Family& family, Line& line) {
  for (unsigned int i = 0; valueName(family, i) != nullptr; ++i) {
    line.put(i == 0 ? "" : valueName(family, i + 1) == nullptr ? " or " : ", ");
    line.put(valueName(family, i));
  }
}

void writeBounds(const Facts& f, Line& line) {
  const unsigned int n = calcNumBounds(f.bounds);
  const auto put = [&](int v) {
    f.textSize != 0 ? line.put('\'').put(static_cast<char>(v)).put('\'') : line.put(v);
  };
  for (unsigned int i = 0; i < n; ++i) {
    line.put(i == 0 ? "" : " or ");
    put(f.bounds[i].min);
    if (f.bounds[i].max != f.bounds[i].min) {
      line.put("..");
      put(f.bounds[i].max);
    }
  }
}

void writeAllowedText(const Facts& f, Line& line) {
  line.put("at most ").put(f.textSize - 1);
  if (f.bounds == ReadWriteVarMgrStr::BOUNDS_PRINTABLE) {
    line.put(" printable");
  }
  line.put(" characters");
  if (f.bounds != nullptr && f.bounds != ReadWriteVarMgrStr::BOUNDS_PRINTABLE) {
    line.put(" of ");
    writeBounds(f, line);
  }
}

const Choice* choiceOf(const Facts& f, int value) {
  const Choice* const end = f.choices + f.numChoices;
  const Choice* const c =
      std::find_if(f.choices, end, [value](const Choice& x) { return x.value == value; });
  return c == end ? nullptr : c;
}

}  // namespace

void writeAllowed(const Family& family, Line& line) {
  const Facts& f = family.facts();
  if (f.kind == Kind::READING) {
    line.put(*f.unit == 0 ? "read only" : "read only,");
    writeUnit(family, line);
  } else if (valueName(family, 0) != nullptr) {
    writeValueNames(family, line);
  } else if (f.textSize != 0) {
    writeAllowedText(f, line);
  } else {
    f.bounds == nullptr ? static_cast<void>(line.put("any number")) : writeBounds(f, line);
    writeUnit(family, line);
  }
}

void writeNumber(const Family& family, int value, Line& line) {
  const Facts& f = family.facts();
  const Choice* const choice = f.kind == Kind::CHOICE ? choiceOf(f, value) : nullptr;
  if (choice != nullptr) {
    line.put(choice->name);
  } else if (f.type == DATA_TYPE_BOOL && (value == 0 || value == 1)) {
    line.put(value == 1 ? "on" : "off");
  } else {
    line.put(value);
  }
}

void writeValue(const Controls& device, const Control& control, Line& line) {
  if (control.family->facts().type == DATA_TYPE_STRING) {
    char text[1024];  // the longest text
    device.get(control, text, sizeof text);
    text[sizeof text - 1] = 0;  // a manager of the application may fill all of it
    line.put('"').put(text).put('"');
  } else {
    writeNumber(*control.family, device.get(control), line);
  }
}

bool writeConfirmed(const Control& control, Line& line) {
  const char* const text = control.family->text(control.member);
  const int* const number = control.family->number(control.member);
  if (text != nullptr) {
    line.put('"').put(text).put('"');
  } else if (number != nullptr) {
    writeNumber(*control.family, *number, line);
  }
  return text != nullptr || number != nullptr;
}

namespace {

bool isOneOf(const char* word, std::initializer_list<const char*> words) {
  return std::any_of(words.begin(), words.end(),
                     [word](const char* w) { return std::strcmp(word, w) == 0; });
}

// The number that `text` says for the family; its unit may stand behind it.
bool parseValue(const Facts& f, const char* text, int& value) {
  for (unsigned int i = 0; i < f.numChoices; ++i) {
    if (std::strcmp(text, f.choices[i].name) == 0) {
      value = f.choices[i].value;
      return true;
    }
  }
  if (f.type == DATA_TYPE_BOOL && isOneOf(text, {"on", "yes", "true"})) {
    value = 1;
    return true;
  }
  if (f.type == DATA_TYPE_BOOL && isOneOf(text, {"off", "no", "false"})) {
    value = 0;
    return true;
  }
  if (!parseNumber(text, value)) {
    return false;
  }
  skipBlanks(text);
  return *text == 0 || std::strcmp(text, f.unit) == 0;
}

int setParsed(Controls& device, const Control& control, const char* text) {
  const Facts& f = control.family->facts();
  const std::size_t length = std::strlen(text);
  if (f.textSize == 0) {
    int value;
    return parseValue(f, text, value) ? device.set(control, value) : CTRL_ERR_PARAM;
  }
  const bool quoted = length > 1 && text[0] == '"' && text[length - 1] == '"';
  const std::size_t bytes = length - (quoted ? 2 : 0);
  if (bytes >= f.textSize) {
    return CTRL_ERR_PARAM;
  }
  char bare[1024];  // the longest text
  std::memcpy(bare, text + (quoted ? 1 : 0), bytes);
  bare[bytes] = 0;
  return device.set(control, bare);
}

bool mayChange(const Control& control, Line& why) {
  if (control.family->isReading()) {
    why.clear();
    writeName(control, why);
    why.put(" is read only");
    return false;
  }
  return true;
}

bool explain(const Controls& device, const Control& control, int result, const char* text,
             Line& why) {
  if (result == CTRL_ERR_SUCCESS) {
    return true;
  }
  why.clear();
  if (result == CTRL_ERR_NOBUFFER) {
    why.put(device.waiting()).put(" settings wait for confirm and no more fit; ");
    writeName(control, why);
    why.put(" is not set");
    return false;
  }
  writeName(control, why);
  why.put(" cannot be ").put(text).put("; it takes ");
  writeAllowed(*control.family, why);
  return false;
}

}  // namespace

bool setText(Controls& device, const Control& control, const char* text, Line& why) {
  if (!mayChange(control, why)) {
    return false;
  }
  if (*text == 0) {
    why.clear();
    writeName(control, why);
    why.put(" takes a value: ");
    writeAllowed(*control.family, why);
    return false;
  }
  return explain(device, control, setParsed(device, control, text), text, why);
}

bool step(Controls& device, const Control& control, int delta, Line& why) {
  const Facts& f = control.family->facts();
  if (!mayChange(control, why)) {
    return false;
  }
  if (f.type == DATA_TYPE_STRING || f.kind == Kind::COMMAND) {
    why.clear();
    writeName(control, why);
    why.put(" is no number");
    return false;
  }
  const unsigned int rows = calcNumBounds(f.bounds);
  const long long low = rows == 0 ? INT_MIN : f.bounds[0].min;
  const long long high = rows == 0 ? INT_MAX : f.bounds[rows - 1].max;
  long long sum = static_cast<long long>(device.get(control)) + delta;
  if (f.overflow == RANGE_WRAP && (sum < low || sum > high)) {
    const long long span = high - low + 1;
    sum = low + ((sum - low) % span + span) % span;
  }
  const int limited = static_cast<int>(std::clamp(sum, low, high));
  const int stepped = getBoundsVal(limited, delta >= 0, RANGE_CLIP, f.bounds, rows);
  LineOf<12> text;
  text.put(stepped);
  return explain(device, control, device.set(control, stepped), text.text(), why);
}

}  // namespace device
