// Preset lists for tests: variables that can refuse a change and that watch their transaction,
// fields over them, and a bit writer that knows nothing of the library's.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "presetmake.h"
#include "presetvarfill.h"
#include "presetvarmgr.h"
#include "random.h"
#include "simplevarmgr.h"

using Bits = std::vector<bool>;

inline void putBits(Bits& bits, unsigned long long val, unsigned int width) {
  for (unsigned int i = width; i > 0; --i) {
    bits.push_back(((val >> (i - 1)) & 1U) != 0);
  }
}

// The fewest bits that tell the numbers 0 to `last` apart.
inline unsigned int bitsFor(unsigned long long last) {
  return last == 0 ? 0 : 1 + bitsFor(last / 2);
}

// A whole image: `verSize` bytes of version, lowest first, the bits, and ones up to the byte.
inline std::vector<unsigned char> naiveImage(unsigned int ver, unsigned int verSize,
                                             const Bits& bits) {
  std::vector<unsigned char> image(verSize + (bits.size() + 7) / 8, 0xFF);
  for (unsigned int i = 0; i < verSize; ++i, ver /= 256) {
    image[i] = static_cast<unsigned char>(ver % 256);
  }
  for (std::size_t i = 0; i < bits.size(); ++i) {
    image[verSize + i / 8] ^= static_cast<unsigned char>(bits[i] ? 0 : 128U >> i % 8);
  }
  return image;
}

struct Watch {
  bool refuse = false;
  std::function<bool()> judge = [] { return true; };  // whether it is consistent
  int open = 0;                                       // transactions begun and not ended
};

inline bool inconsistent() {
  return false;
}

template <class Base>
class Watched : public Base {
 public:
  using Base::Base;
  bool startXaction() override {
    watch.open += watch.refuse ? 0 : 1;
    return !watch.refuse;
  }
  void endXaction() override { --watch.open; }
  bool isConsistent() override { return watch.judge(); }
  // Leaves it working with what nobody set.
  void disturb(int v) { this->val = v; }
  void disturb(char c) { std::fill_n(this->str, this->len, c); }

  Watch watch;
};

// One variable with its field.
class Item {
 public:
  virtual ~Item() = default;
  virtual PresetField& field() = 0;
  virtual Watch* watch() { return nullptr; }  // null: no variable
  // Gives the variable another value that it allows, published.
  virtual void change(Random&) {}
  // Leaves it working with a value that it does not allow and that nobody published.
  virtual void disturb() {}
  virtual void write(Bits& bits) const = 0;
  virtual std::string value() const { return ""; }           // what the application sees
  virtual std::string working() const { return ""; }         // what the variable works with
  virtual std::string initial() const { return working(); }  // what init brings
};

class FillItem : public Item {
 public:
  FillItem(bool b, unsigned int n) : bit(b), num(n), fill(b, n) {}
  PresetField& field() override { return fill; }
  void write(Bits& bits) const override { bits.insert(bits.end(), num, bit); }

 private:
  const bool bit;
  const unsigned int num;
  PresetFieldFill fill;
};

class IntItem : public Item {
 public:
  // Automatic form over the rows in `r`, which end in BOUNDS_END.
  explicit IntItem(std::vector<bounds_t> r)
      : rows(std::move(r)),
        start(rows[0].max),
        var(glob, group, start, rows.data(), RANGE_CLIP),
        packed(var) {}
  // Manual form of `nb` bits, 1 to 32; signed 32 bits are the automatic form without bounds.
  IntItem(unsigned int nb, bool sign)
      : width(nb),
        isSigned(sign),
        var(glob, group, 0, nullptr, RANGE_CLIP),
        packed(nb == 32 && sign ? PresetFieldVarInt(var)
                                : PresetFieldVarInt(var, nb, nullptr, sign)) {}

  PresetField& field() override { return packed; }
  Watch* watch() override { return &var.watch; }
  void change(Random& random) override {
    if (rows.empty()) {
      const unsigned int raw = random.word() >> (32 - width);
      const bool negative = isSigned && (raw >> (width - 1)) != 0;
      set(static_cast<int>(raw | (negative ? ~calcBitMask(width) : 0)));
    } else {
      const bounds_t row = rows[random.below(static_cast<unsigned int>(rows.size() - 1))];
      set(static_cast<int>(row.min + static_cast<long long>(random.word()) % size(row)));
    }
  }
  void set(int v) {
    glob = v;
    group.setRefresh();
    var.refresh();
  }
  void disturb() override { var.disturb(rows.empty() ? 0 : rows.front().min - 1); }
  void write(Bits& bits) const override {
    if (rows.empty()) {
      putBits(bits, static_cast<unsigned int>(glob), width);
    } else {
      putBits(bits, rank(glob), bitsFor(rank(rows.rbegin()[1].max)));
    }
  }
  std::string value() const override { return std::to_string(glob); }
  std::string working() const override { return std::to_string(var.get()); }
  std::string initial() const override { return std::to_string(start); }

 private:
  static long long size(const bounds_t& row) {
    return static_cast<long long>(row.max) - row.min + 1;
  }
  // How many allowed values are below `v`.
  unsigned long long rank(long long v) const {
    long long n = 0;
    for (const bounds_t& row : rows) {
      n += v > row.max ? size(row) : v < row.min ? 0 : v - row.min;
    }
    return static_cast<unsigned long long>(n);
  }

  const std::vector<bounds_t> rows;
  const int start = 0;
  const unsigned int width = 0;
  const bool isSigned = false;
  int glob = 0;
  RefreshMgr group;
  Watched<ReadWriteVarMgrSimpleInt> var;
  PresetFieldVarInt packed;
};

class StrItem : public Item {
 public:
  StrItem(const bounds_t* b, unsigned int max, PresetFieldVarStr::mode_t m, void* scratch,
          unsigned int scratchSize)
      : mode(m),
        buf(max + 1),
        glob(max + 1),
        var(group, glob.data(), buf.data(), max + 1, b, nullptr),
        packed(var, scratch, scratchSize, m) {
    for (int c = 1; c < 256; ++c) {
      const char text = static_cast<char>(c);
      allowed += var.validate(&text, 1) ? std::string(1, text) : "";
    }
  }

  PresetField& field() override { return packed; }
  Watch* watch() override { return &var.watch; }
  void change(Random& random) override {
    const unsigned int chars = static_cast<unsigned int>(allowed.size());
    std::string text(random.below(static_cast<unsigned int>(glob.size())), ' ');
    for (char& c : text) {
      c = allowed[random.below(chars)];
    }
    glob.assign(glob.size(), '\0');
    std::copy(text.begin(), text.end(), glob.begin());
    group.setRefresh();
    var.refresh();
  }
  void disturb() override { var.disturb('\x01'); }
  void write(Bits& bits) const override {
    const std::string text = value();
    const bool dense = mode == PresetFieldVarStr::MODE_AUTO;
    for (std::size_t i = 0; i + 1 < glob.size(); ++i) {
      const std::size_t place = i < text.size() ? allowed.find(text[i]) : allowed.size();
      const unsigned char byte = i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
      putBits(bits, dense ? place : byte, dense ? bitsFor(allowed.size()) : 8);
    }
  }
  std::string value() const override { return glob.data(); }
  std::string working() const override { return var.get(); }

 private:
  const PresetFieldVarStr::mode_t mode;
  std::string allowed;
  RefreshMgr group;
  std::vector<char> buf;
  std::vector<char> glob;
  Watched<ReadWriteVarMgrSimpleStr> var;
  PresetFieldVarStr packed;
};

// A list with its history.
class PresetList {
 public:
  static constexpr unsigned int LAST = 6;  // versions behind the first one of a random list
  // The first versions to try: from the second on they need more bytes than some image has for
  // them.
  static constexpr unsigned int FIRST[] = {0, 0xFC, 0x12345, 0xFFFFFFF0};

  // Up to eight rows over all kinds of fields, from version `first` on, made ready. Current ones
  // say so in 32 bits or in all of the number. All texts share one scratch buffer.
  void addRandomRows(Random& random, unsigned long first = 0) {
    for (unsigned int n = random.below(9); n > 0; --n) {
      const unsigned int ver = random.below(LAST), life = 1 + random.below(LAST - ver);
      const bool dropped = random.oneIn(3);
      const unsigned long valid = n % 2 == 0 ? PRESET_FIELD_VALID : ~0UL;
      auto item = makeItem(random);
      rows.insert(rows.end() - 1,
                  {first + ver, dropped ? first + ver + life : valid, &item->field()});
      items.push_back(std::move(item));
    }
    initPreset(table());
  }
  bool current(std::size_t i) const { return rows[i].remove >= PRESET_FIELD_VALID; }
  // Whether row `i` is in the image of version `ver`.
  bool inImage(std::size_t i, unsigned int ver) const {
    return rows[i].ver <= ver && rows[i].remove > ver;
  }
  unsigned int version() const {
    unsigned long ver = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
      ver = std::max(ver, current(i) ? rows[i].ver : rows[i].remove);
    }
    return static_cast<unsigned int>(ver);
  }
  Bits bits(unsigned int ver) const {
    Bits all;
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (inImage(i, ver)) {
        items[i]->write(all);
      }
    }
    return all;
  }
  void change(Random& random) {
    for (const auto& item : items) {
      item->change(random);
    }
  }
  // Everything that can be seen of the variables.
  std::string state() const {
    std::string all;
    for (const auto& item : items) {
      const int open = item->watch() == nullptr ? 0 : item->watch()->open;
      all += item->value() + "/" + item->working() + "/" + std::to_string(open) + "\n";
    }
    return all;
  }
  const verPresetField_t* table() const { return rows.data(); }

  std::vector<std::unique_ptr<Item>> items;

 private:
  std::unique_ptr<Item> makeItem(Random& random) {
    using Str = ReadWriteVarMgrStr;
    static const bounds_t* const classes[] = {
        Str::BOUNDS_PRINTABLE,   Str::BOUNDS_ALNUM, Str::BOUNDS_ALPHA, Str::BOUNDS_ALPHA_UPPER,
        Str::BOUNDS_ALPHA_LOWER, Str::BOUNDS_DIGIT, Str::BOUNDS_HEX};
    // Drawn one by one: the order in which arguments are computed is the compiler's.
    const unsigned int kind = random.below(5), size = random.below(70);
    const bool flag = random.oneIn(2);
    switch (kind) {
      case 0:
        return std::make_unique<FillItem>(flag, size);
      case 1:
        return std::make_unique<IntItem>(1 + size % 32, flag);
      case 2:
        return std::make_unique<StrItem>(
            classes[random.below(7)], size % 9,
            flag ? PresetFieldVarStr::MODE_AUTO : PresetFieldVarStr::MODE_MANUAL, scratch,
            sizeof scratch);
      default:
        return makeBounded(random);
    }
  }
  // One to four rows with gaps; one list in four spans most of the integers.
  static std::unique_ptr<Item> makeBounded(Random& random) {
    std::vector<bounds_t> bounds;
    const unsigned int span = random.below(4) == 0 ? 1U << 30 : 40;
    long long from = span > 40 ? -2147483600LL : -20;
    do {
      const long long to = std::min(from + random.below(span), 2147483647LL);
      bounds.push_back({static_cast<int>(from), static_cast<int>(to)});
      from = to + 2 + random.below(20);
    } while (from < 2147483647LL && random.below(4) != 0);
    bounds.push_back({1, 0});
    return std::make_unique<IntItem>(std::move(bounds));
  }

  std::vector<verPresetField_t> rows = {{0, 0, nullptr}};
  unsigned char scratch[16];
};
