#include "devicefamily.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "debug.h"

namespace device {

unsigned int Control::id() const {
  return family->facts().id;
}

unsigned int Control::index() const {
  return family->index(member);
}

unsigned int Control::subscript(unsigned int dimension) const {
  const unsigned int inner = family->facts().dim[1];
  const Facts& f = family->facts();
  return dimension >= f.ndim ? 0 : dimension == 0 ? member / inner : member % inner;
}

Family* Family::declared = nullptr;

Family::Family(const Facts& facts, int* n, char* t)
    : about(facts), numbers(n), texts(t), next(declared) {
  about.name = about.name == nullptr ? "" : about.name;
  declared = this;
}

void Family::onChange(ChangeFn fn) {
  CTRL_ASSERT(!wrong(taken, "onChange comes too late: call it in front of start()"));
  told = fn;
}

unsigned int Family::index(unsigned int k) const {
  return about.ndim < 2 ? k : k / about.dim[1] | k % about.dim[1] << 8;
}

unsigned int Family::member(unsigned int i) const {
  const unsigned int first = about.ndim < 2 ? i : i & 0xFF;
  const unsigned int second = about.ndim < 2 ? 0 : i >> 8;
  return first < about.dim[0] && second < about.dim[1] ? first * about.dim[1] + second : size();
}

CtrlRead& Family::entry(unsigned int k) const {
  CTRL_ASSERT((rw != nullptr || ro != nullptr) && k < size());
  if (rw != nullptr) {
    return *rw[k];
  }
  return *ro[k];
}

CtrlReadWrite* Family::settable(unsigned int k) const {
  CTRL_ASSERT((rw != nullptr || ro != nullptr) && k < size());
  return rw == nullptr ? nullptr : rw[k];
}

ReadWriteVarMgr* Family::variable(unsigned int) const {
  return nullptr;
}

void Family::registerAs(CtrlReadWrite* const* array) {
  rw = array;
}

void Family::registerAs(CtrlRead* const* array) {
  ro = array;
}

bool Family::wrong(bool bad, const char* what) const {
  if (bad) {
    std::printf("device: \"%s\", id %u: %s\n", about.name, about.id, what);
  }
  return bad;
}

bool Family::wrongMember(bool bad, unsigned int k, const char* what) const {
  if (bad) {
    std::printf("device: \"%s\", id %u, index %u: %s\n", about.name, about.id, index(k), what);
  }
  return bad;
}

bool Family::allows(int v) const {
  return getBoundsVal(v, true, RANGE_CLIP, about.bounds, calcNumBounds(about.bounds)) == v;
}

void Family::callBack(ChangeFn device, const Change& change) const {
  for (const ChangeFn fn : {told, device}) {
    if (fn != nullptr) {
      fn(change);
    }
  }
}

namespace {

// A word that a person can type as one, and that no number can be taken for.
bool isWord(const char* name) {
  if (name == nullptr || std::isalpha(static_cast<unsigned char>(*name)) == 0) {
    return false;
  }
  while (std::isalnum(static_cast<unsigned char>(*name)) != 0 || *name == '_' || *name == '-') {
    ++name;
  }
  return *name == 0;
}

bool isEnd(const bounds_t& row) {
  return row.min == BOUNDS_END.min && row.max == BOUNDS_END.max;
}

unsigned int digits(unsigned int n) {
  return n < 10 ? 1 : 1 + digits(n / 10);
}

}  // namespace

void Family::checkName() const {
  constexpr unsigned int NAME_MAX = 32;
  constexpr unsigned int ENTRY_DIGITS = 13;  // what an entry's name holds of id and index
  const unsigned int last = index(size() - 1);
  CTRL_ASSERT(!wrong(!isWord(about.name) || std::strlen(about.name) > NAME_MAX,
                     "its name cannot be typed: take a letter, then letters, digits, '_' and '-', "
                     "at most 32"));
  CTRL_ASSERT(!wrong(about.unit == nullptr || about.help == nullptr,
                     "its unit or help is null: leave it out or take an empty text"));
  CTRL_ASSERT(!wrong(digits(about.id) + digits(last) > ENTRY_DIGITS,
                     "its id and largest index have more than 13 digits together: take a smaller "
                     "id"));
}

// Reads no row behind the first mistake or BOUNDS_END, where calcNumBounds would.
void Family::checkBounds() const {
  const bounds_t* row = about.bounds;
  if (row == nullptr) {
    return;
  }
  CTRL_ASSERT(!wrong(isEnd(*row), "its bounds have no row: take a null pointer for any value"));
  CTRL_ASSERT(!wrong(row->max < row->min, "its first bounds row is reversed: take min, max"));
  while (!isEnd(*++row)) {
    const bool lowest = row[-1].max == BOUNDS_END.min;  // which BOUNDS_END cannot close
    if (lowest && row->max < row->min) {
      return;
    }
    CTRL_ASSERT(!wrong(row->max < row->min,
                       "a bounds row is reversed, or BOUNDS_END is missing: take min, max"));
    CTRL_ASSERT(!wrong(row->min < row[-1].max,
                       "its bounds rows overlap or do not rise, or BOUNDS_END is missing"));
  }
  CTRL_ASSERT(!wrong(row[-1].max == BOUNDS_END.min,
                     "BOUNDS_END cannot close bounds that end at the lowest int: take {0, -1}"));
}

void Family::check() const {
  checkName();
}

namespace inner {

void boundsOf(const Choice* choices, unsigned int n, bounds_t* rows) {
  bounds_t* row = rows;
  for (const Choice* c = choices; c != choices + n; ++c) {
    if (row != rows && c->value > row[-1].max && c->value - 1 == row[-1].max) {
      row[-1].max = c->value;
    } else {
      *row++ = {c->value, c->value};
    }
  }
  *row = {0, -1};  // closes every list, also one that ends at the lowest int
}

const bounds_t ONE[] = {{1, 1}, BOUNDS_END};

namespace {

// Registers the family of `array` with the converter for its dimensions.
template <class Entry>
void registerFamily(const Facts& f, Entry* const* array) {
  const CmdStsIdx2ArrIdxFn conv = checkConv(nullptr, f.ndim);
  if constexpr (std::is_same_v<Entry, CtrlRead>) {
    ctrl_register_read(f.id, f.dim, f.ndim, conv, array);
  } else {
    ctrl_register_rw(f.id, f.dim, f.ndim, conv, array);
  }
}

void copyText(char* to, const char* from, unsigned int size) {
  ReadVarMgr::setBufStr(to, size, from, false);
}

}  // namespace

void Numbers::check() const {
  Family::check();
  const Choice* const c = about.choices;
  if (c == nullptr) {
    checkBounds();
  }
  for (unsigned int i = 0; c != nullptr && i < about.numChoices; ++i) {
    CTRL_ASSERT(!wrong(!isWord(c[i].name),
                       "a name of its values cannot be typed: take a letter, "
                       "then letters, digits, '_' and '-'"));
    CTRL_ASSERT(!wrong(i > 0 && c[i].value <= c[i - 1].value, "its named values do not rise"));
    for (unsigned int j = 0; j < i; ++j) {
      CTRL_ASSERT(!wrong(std::strcmp(c[i].name, c[j].name) == 0,
                         "two of its values have one name: rename one"));
    }
  }
  for (unsigned int k = 0; k < size(); ++k) {
    CTRL_ASSERT(!wrongMember(!allows(initial(k)), k,
                             "its initial value is outside its bounds: change either"));
  }
}

void Numbers::start() {
  reset();
  for (unsigned int k = 0; k < size(); ++k) {
    last[k] = initial(k);
    const int own = initial(k);
    auto* const m = new (members + k)
        Member<NumberVar>(about.id, index(k), numbers[k], refresh[k / GROUP], own, about);
    m->entry.init();
    array[k] = &m->entry;
  }
  registerFamily<CtrlReadWrite>(about, array);
  registerAs(array);
}

void Numbers::reset() {
  for (unsigned int k = 0; k < size(); ++k) {
    numbers[k] = initial(k);
  }
}

void Numbers::tell(ChangeFn device) {
  for (unsigned int k = 0; k < size(); ++k) {
    const int now = numbers[k];
    const int before = last[k];
    if (now != before) {
      last[k] = now;
      callBack(device, {{this, k}, before, now, nullptr, nullptr});
    }
  }
}

void TextSettings::check() const {
  Family::check();
  checkBounds();
  for (unsigned int k = 0; k < size(); ++k) {
    const char* c = initial(k);
    CTRL_ASSERT(!wrongMember(std::strlen(c) >= about.textSize, k,
                             "its initial text does not fit: make the variable larger"));
    while (*c != 0 && allows(static_cast<unsigned char>(*c))) {
      ++c;
    }
    CTRL_ASSERT(!wrongMember(*c != 0, k, "its initial text has a character that is not allowed"));
  }
}

void TextSettings::start() {
  reset();
  for (unsigned int k = 0; k < size(); ++k) {
    char* const global = texts + k * about.textSize;
    copyText(last + k * about.textSize, global, about.textSize);
    char* const work = working + k * about.textSize;
    const char* const own = initial(k);
    auto* const m = new (members + k) Member<TextVar>(
        about.id, index(k), refresh[k / GROUP], global, work, about.textSize, about.bounds, own);
    m->entry.init();
    array[k] = &m->entry;
  }
  registerFamily<CtrlReadWrite>(about, array);
  registerAs(array);
}

void TextSettings::reset() {
  for (unsigned int k = 0; k < size(); ++k) {
    copyText(texts + k * about.textSize, initial(k), about.textSize);
  }
}

void TextSettings::tell(ChangeFn device) {
  for (unsigned int k = 0; k < size(); ++k) {
    char* const old = last + k * about.textSize;
    const char* const now = texts + k * about.textSize;
    if (std::strncmp(old, now, about.textSize) != 0) {
      char before[1024];  // the longest text
      char after[1024];   // the function may change the global
      copyText(before, old, about.textSize);
      copyText(after, now, about.textSize);
      copyText(old, after, about.textSize);
      callBack(device, {{this, k}, 0, 0, before, after});
    }
  }
}

void ReadingFamily::check() const {
  Family::check();
  CTRL_ASSERT(!wrong(!hasSource, "it has no function: tell what gives its value"));
}

void ReadingFamily::start() {
  for (unsigned int k = 0; k < size(); ++k) {
    const ReadVarMgr& var = manager(k);
    about.type = var.getType();
    array[k] = new (entries + k) CtrlReadVarMgr(about.id, index(k), var);
  }
  registerFamily<CtrlRead>(about, array);
  registerAs(array);
}

CommandEntry::CommandEntry(const Control& c, RunFn f, const Facts& facts, bool& first,
                           CtrlReadWrite** array, unsigned int size)
    : SimpleCtrlCmd(facts.id, c.index(), facts.bounds, first, array, size, facts.dim, facts.ndim,
                    nullptr, facts.overflow),
      control(c),
      run(f) {}

void CommandFamily::check() const {
  Family::check();
  checkBounds();
  CTRL_ASSERT(!wrong(run == nullptr, "it has no function: tell what it does"));
}

void CommandFamily::start() {
  for (unsigned int k = 0; k < size(); ++k) {
    (new (entries + k) CommandEntry({this, k}, run, about, first, array, size()))->init();
  }
  registerAs(array);
}

void CommandFamily::publish(unsigned int k, const void* data, unsigned int size) const {
  run({this, k}, ReadWriteVarMgr::convert(data, size));
}

}  // namespace inner
}  // namespace device
