#include "names.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned int INT_SIZE = 4;
constexpr unsigned int TEXT_SIZE = 1024;

bool isDigit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Reads an unsigned number that starts at `text` and moves `text` behind it.
bool parseNumber(const char*& text, unsigned int& number) {
  if (!isDigit(*text)) {
    return false;
  }
  char* end;
  errno = 0;
  const unsigned long long value = std::strtoull(text, &end, 10);
  if (errno != 0 || value > UINT_MAX) {
    return false;
  }
  number = static_cast<unsigned int>(value);
  text = end;
  return true;
}

unsigned int encode(const unsigned int* sub, unsigned int n) {
  return n == 0 ? 0 : n == 1 ? sub[0] : (sub[0] | sub[1] << 8);
}

void decode(unsigned int index, unsigned int n, unsigned int* sub) {
  sub[0] = n == 2 ? index & 0xFF : index;
  sub[1] = n == 2 ? index >> 8 : 0;
}

bool inFamily(const Family& family, const unsigned int* sub) {
  for (unsigned int i = 0; i < 2; ++i) {
    if (sub[i] >= (i < family.ndim ? family.dim[i] : 1)) {
      return false;
    }
  }
  return true;
}

const Family* findFamily(unsigned int id) {
  for (const Family* f = FAMILIES; f->name != nullptr; ++f) {
    if (f->id == id) {
      return f;
    }
  }
  return nullptr;
}

const Family* findFamily(const std::string& name) {
  for (const Family* f = FAMILIES; f->name != nullptr; ++f) {
    if (name == f->name) {
      return f;
    }
  }
  return nullptr;
}

// The word at `text`, for an error message.
std::string wordAt(const char* text) {
  return std::string(text, std::strcspn(text, " \t"));
}

std::string noSuchControl(const char* text) {
  const std::string word = wordAt(text);
  std::string error =
      (word.empty() ? "which control?" : "no control \"" + word + "\";") + " there are";
  for (const Family* f = FAMILIES; f->name != nullptr; ++f) {
    error += std::string(f == FAMILIES ? " " : ", ") + f->name;
  }
  return error;
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
bool parseSubscripts(const char*& text, const Family& family, unsigned int* sub, unsigned int& n) {
  for (n = 0; n < family.ndim; ++n) {
    const Found found = parseSubscript(text, sub[n]);
    if (found == NONE) {
      return true;
    }
    if (found == BAD || sub[n] >= family.dim[n]) {
      return false;
    }
  }
  return *text != '[';
}

// Bytes of a value buffer that holds any value of `type`.
unsigned int sizeOf(CTRL_DATA_TYPE type) {
  return type == DATA_TYPE_STRING ? TEXT_SIZE : INT_SIZE;
}

std::string writtenValue(CTRL_DATA_TYPE type, const char* buf) {
  if (type == DATA_TYPE_STRING) {
    return std::string("\"") + buf + "\"";
  }
  const int number = ReadWriteVarMgr::convert(buf, INT_SIZE);
  if (type == DATA_TYPE_BOOL && (number == 0 || number == 1)) {
    return number == 1 ? "on" : "off";
  }
  return std::to_string(number);
}

}  // namespace

void skipBlanks(const char*& text) {
  text += std::strspn(text, " \t");
}

std::vector<Address> members(const Family& family) {
  std::vector<Address> all;
  const unsigned int outer = family.ndim > 0 ? family.dim[0] : 1;
  const unsigned int inner = family.ndim > 1 ? family.dim[1] : 1;
  for (unsigned int i = 0; i < outer; ++i) {
    for (unsigned int j = 0; j < inner; ++j) {
      const unsigned int sub[2] = {i, j};
      all.push_back({&family, family.id, encode(sub, family.ndim)});
    }
  }
  return all;
}

std::vector<Address> parseControls(const char*& text, std::string& error) {
  skipBlanks(text);
  const char* at = text;
  unsigned int id;
  unsigned int index;
  if (parseNumber(at, id) && *at++ == ':' && parseNumber(at, index)) {
    text = at;
    return {{findFamily(id), id, index}};
  }
  const Family* const family = findFamily(std::string(text, std::strcspn(text, " \t[")));
  if (family == nullptr) {
    error = noSuchControl(text);
    return {};
  }
  at = text + std::strlen(family->name);
  unsigned int sub[2] = {0, 0};
  unsigned int given;
  if (!parseSubscripts(at, *family, sub, given)) {
    const std::size_t read = static_cast<std::size_t>(at - text);
    error = "no control \"" + std::string(text, std::max(read, wordAt(text).size())) +
            "\"; there is " + familyName(*family);
    return {};
  }
  text = at;
  std::vector<Address> found;
  for (const Address& a : members(*family)) {
    unsigned int own[2];
    decode(a.index, family->ndim, own);
    if ((given < 1 || own[0] == sub[0]) && (given < 2 || own[1] == sub[1])) {
      found.push_back(a);
    }
  }
  return found;
}

bool parseControl(const char*& text, Address& control, std::string& error) {
  const std::vector<Address> found = parseControls(text, error);
  if (found.size() > 1) {
    error = "which one? " + familyName(*found[0].family) + ", as in " + controlName(found[0]);
  }
  if (found.size() != 1) {
    return false;
  }
  control = found[0];
  return true;
}

std::string controlName(const Address& control) {
  unsigned int sub[2];
  if (control.family != nullptr) {
    decode(control.index, control.family->ndim, sub);
  }
  if (control.family == nullptr || !inFamily(*control.family, sub)) {
    return std::to_string(control.id) + ":" + std::to_string(control.index);
  }
  std::string name = control.family->name;
  for (unsigned int i = 0; i < 2; ++i) {
    if (i < control.family->ndim) {
      name += "[" + std::to_string(sub[i]) + "]";
    }
  }
  return name;
}

std::string controlName(unsigned int id, unsigned int index) {
  return controlName({findFamily(id), id, index});
}

std::string familyName(const Family& family) {
  std::string name = family.name;
  for (unsigned int i = 0; i < family.ndim; ++i) {
    name += "[0.." + std::to_string(family.dim[i] - 1) + "]";
  }
  return name;
}

std::string allowedValues(const Family& family) {
  if (family.access == READ_ONLY) {
    return std::string("read only,") + family.unit;
  }
  if (family.type == DATA_TYPE_BOOL) {
    return "off or on";
  }
  std::string ranges;
  const unsigned int n = calcNumBounds(family.bounds);
  const bool text = family.type == DATA_TYPE_STRING;
  const auto written = [text](int v) {
    return text ? std::string("'") + static_cast<char>(v) + "'" : std::to_string(v);
  };
  for (unsigned int i = 0; i < n; ++i) {
    const bounds_t& row = family.bounds[i];
    ranges += (i == 0 ? "" : " or ") + written(row.min);
    ranges += row.max == row.min ? "" : ".." + written(row.max);
  }
  if (family.bounds == ReadWriteVarMgrStr::BOUNDS_PRINTABLE) {
    return "at most " + std::to_string(family.maxText) + " printable characters";
  }
  if (text) {
    return "at most " + std::to_string(family.maxText) + " characters" +
           (ranges.empty() ? "" : " of " + ranges);
  }
  return (ranges.empty() ? "any number" : ranges) + family.unit;
}

bool parseValue(const char* text, CTRL_DATA_TYPE type, std::vector<char>& buf) {
  const std::string value = text;
  if (type == DATA_TYPE_STRING) {
    const bool quoted = value.size() > 1 && value.front() == '"' && value.back() == '"';
    const std::string bare = quoted ? value.substr(1, value.size() - 2) : value;
    buf.assign(bare.c_str(), bare.c_str() + bare.size() + 1);
    return true;
  }
  long long number;
  if (type == DATA_TYPE_BOOL && (value == "on" || value == "yes" || value == "true")) {
    number = ReadWriteVarMgrBool::ON;
  } else if (type == DATA_TYPE_BOOL && (value == "off" || value == "no" || value == "false")) {
    number = ReadWriteVarMgrBool::OFF;
  } else {
    char* end;
    errno = 0;
    number = std::strtoll(text, &end, 10);
    if (end == text || *end != 0 || errno != 0 || number < INT_MIN || number > INT_MAX) {
      return false;
    }
  }
  buf.resize(INT_SIZE);
  ReadVarMgr::setBufInt(buf.data(), INT_SIZE, static_cast<int>(number));
  return true;
}

bool readValue(const Address& control, std::string& value) {
  char buf[TEXT_SIZE];
  const CTRL_DATA_TYPE type = control.family == nullptr ? DATA_TYPE_INT : control.family->type;
  if (ctrlDoGet(control.id, control.index, sizeOf(type), buf) != CTRL_ERR_SUCCESS) {
    return false;
  }
  value = writtenValue(type, buf);
  return true;
}

bool confirmedValue(const Address& control, std::string& value) {
  for (CtrlReadWrite** saved = savedControls(); *saved != nullptr; ++saved) {
    if ((*saved)->getVarID() == control.id && (*saved)->getIndex() == control.index) {
      char buf[TEXT_SIZE];
      const CTRL_DATA_TYPE type = (*saved)->getType();
      (*saved)->get(buf, sizeOf(type));
      value = writtenValue(type, buf);
      return true;
    }
  }
  return false;
}

std::vector<std::string> completeControl(const std::string& word) {
  std::vector<std::string> found;
  for (const Family* f = FAMILIES; f->name != nullptr; ++f) {
    for (const Address& a : members(*f)) {
      const std::string name = controlName(a);
      if (name.compare(0, word.size(), word) == 0) {
        found.push_back(name);
      }
    }
  }
  return found;
}
