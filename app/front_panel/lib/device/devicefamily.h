// Families: what an application tells of its controls, each fact once.
//
//   int gain[4][3];
//   const bounds_t GAIN_BOUNDS[] = {{-100, -100}, {-60, 12}, BOUNDS_END};
//   device::Integers gains(20, "gain", gain, GAIN_BOUNDS, RANGE_CLIP, 0, "dB", "gain of a band");
//
// A family is like controls in zero, one or two dimensions; its shape is that of the application's
// variables, which hold the confirmed values: the globals. Everything that the registry needs of a
// family (variables, entries, arrays, refresh groups) stands in the family object, sized by the
// compiler. Families are statics of the application, and so are the tables, texts and globals
// that they are told; devicetable.h puts them together and starts them. One thread, the one of the
// requests, uses them. Nothing allocates. A family that contradicts itself stops the process when
// the device starts, behind a line that names it and says what to change.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

#include "simplectrlwrapvar.h"
#include "simplevarmgr.h"

/// The layer in which a device is told once.
namespace device {

class Family;

/// What the controls of a family are.
enum class Kind {
  INTEGER,  ///< a bounded integer
  BOOLEAN,  ///< off or on
  CHOICE,   ///< an integer whose values have names
  TEXT,     ///< a text
  READING,  ///< read only
  COMMAND,  ///< does something when it is confirmed, and reads as 0
};

/// A named value of a choice.
struct Choice {
  int value;         ///< what the global holds
  const char* name;  ///< as typed: a letter, then letters, digits, '_' and '-'
};

/// One control: a member of a family.
struct Control {
  const Family* family = nullptr;  ///< null for none
  unsigned int member = 0;         ///< counted from 0, the last subscript runs fastest

  /// The variable id.
  unsigned int id() const;
  /// The variable index: the subscript, or first | second << 8.
  unsigned int index() const;
  /// The subscript in `dimension`, 0 or 1; 0 in one that the family does not have.
  unsigned int subscript(unsigned int dimension) const;
};

/// A confirmed value that differs from the one before.
struct Change {
  Control control;         ///< what changed
  int before;              ///< the old number; 0 for a text
  int now;                 ///< the new number; 0 for a text
  const char* beforeText;  ///< the old text; null for a number
  const char* nowText;     ///< the new text; null for a number
};

/// Told of a change, on the thread of the requests, behind the confirm, recall or restore as a
/// whole and with no lock held: once for each control whose confirmed value differs from the one
/// told before, in the order of the families and members. It may read, set, confirm, cancel and
/// recall; what changes by that is told when all of this change has been told. So it comes to an
/// end only if what it confirms does.
using ChangeFn = void (*)(const Change& change);
/// Gives the present value of a reading.
using ReadFn = int (*)(const Control& control);
/// Carries a command out, with the value that was confirmed, inside Controls::confirm and with its
/// lock held. It may write the globals of settings, set controls, which are confirmed in the same
/// pass, and call Controls::reset and changed; it does not lock, confirm, cancel, save, recall or
/// restore.
using RunFn = void (*)(const Control& control, int value);

/// All that is told of a family.
struct Facts {
  unsigned int id;          ///< variable id
  const char* name;         ///< as typed: a letter, then letters, digits, '_' and '-'
  Kind kind;                ///< what the controls are
  CTRL_DATA_TYPE type;      ///< how a value is carried
  const bounds_t* bounds;   ///< allowed values, or allowed characters of a text; null for all
  range_t overflow;         ///< what a step past the ends does
  const char* unit;         ///< of the numbers, or empty
  const char* help;         ///< one line for people
  unsigned int ndim;        ///< dimensions, 0 to 2
  unsigned int dim[2];      ///< positions in each dimension; 1 in one that it does not have
  unsigned int textSize;    ///< bytes of a text with its terminator; 0 for a number
  const Choice* choices;    ///< the named values, or null
  unsigned int numChoices;  ///< how many
};

/// What all families share. The classes for the application stand below.
class Family {
 public:
  Family(const Family&) = delete;  ///< the registry holds the addresses of its members
  Family& operator=(const Family&) = delete;

  /// What was told.
  const Facts& facts() const { return about; }
  /// Members.
  unsigned int size() const { return about.dim[0] * about.dim[1]; }
  /// A number or text that is set, confirmed and saved.
  bool isSetting() const { return numbers != nullptr || texts != nullptr; }
  /// Read-only; a set is refused.
  bool isReading() const { return about.kind == Kind::READING; }
  /// The variable index of member `k`.
  unsigned int index(unsigned int k) const;
  /// The member with the variable index `index`; size() when there is none.
  unsigned int member(unsigned int index) const;

  /// The confirmed number of member `k` of a number setting, or null.
  const int* number(unsigned int k) const { return numbers == nullptr ? nullptr : numbers + k; }
  /// The confirmed text of member `k` of a text setting, or null.
  const char* text(unsigned int k) const {
    return texts == nullptr ? nullptr : texts + k * about.textSize;
  }
  /// The entry of member `k`. REQUIRES: the device has started.
  CtrlRead& entry(unsigned int k) const;
  /// The read-write entry of member `k`; null for a reading. REQUIRES: the device has started.
  CtrlReadWrite* settable(unsigned int k) const;
  /// The variable of member `k` of a setting; null for any other. REQUIRES: the device has started.
  virtual ReadWriteVarMgr* variable(unsigned int k) const;

  /// True when the family stands in a device that has started.
  bool isTaken() const { return taken; }
  /// For a check at the start: prints the family and what is wrong with it, if `bad`. Returns
  /// `bad`.
  bool wrong(bool bad, const char* what) const;
  /// The same for member `k`.
  bool wrongMember(bool bad, unsigned int k, const char* what) const;

  /// Has changes of this family told to `fn`, before the device's function is told; null for none.
  /// REQUIRES: the device has not started.
  void onChange(ChangeFn fn);

 protected:
  /// `n`: the globals of number settings; `t`: of text settings.
  explicit Family(const Facts& facts, int* n = nullptr, char* t = nullptr);
  ~Family() = default;

  /// Stops the process when what was told contradicts itself.
  virtual void check() const;
  /// Gives the globals their initial values and registers the family. The registry is ready.
  virtual void start() = 0;
  /// Writes the initial values to the globals.
  virtual void reset() {}
  /// Sets member `k` to an allowed value and confirms it, apart from a set of it that waits.
  virtual void publish(unsigned int k, const void* data, unsigned int size) const = 0;
  /// The variables follow their globals, all but those whose set waits: each when it is read next,
  /// or, with `now`, at once.
  virtual void follow(bool /*now*/) {}
  /// Tells the changes since the last call.
  virtual void tell(ChangeFn) {}

  void checkBounds() const;
  /// True when `v` is within the bounds.
  bool allows(int v) const;
  void callBack(ChangeFn device, const Change& change) const;
  void registerAs(CtrlReadWrite* const* array);
  void registerAs(CtrlRead* const* array);

  Facts about;
  int* const numbers;
  char* const texts;

 private:
  friend class Controls;
  void checkName() const;

  static Family* declared;  // all families that exist, so that one left out of the device is found
  Family* next;
  bool taken = false;  // stands in a device
  const Family* sameHash = nullptr;
  CtrlReadWrite* const* rw = nullptr;
  CtrlRead* const* ro = nullptr;
  ChangeFn told = nullptr;
};

// What the families below are made of; nothing for applications.
namespace inner {

/// Memory for `N` objects that are made when the device starts and live as long as the process.
template <class T, unsigned int N>
struct Raw {
  alignas(T) unsigned char bytes[N * sizeof(T)];
};
template <class T, unsigned int N>
T* at(Raw<T, N>& raw) {
  return reinterpret_cast<T*>(raw.bytes);
}

/// A variable whose waiting set stays until it is confirmed or taken back: without this, a read
/// behind a commit in the same group would bring the global back. The set waits as long as the
/// round of the confirm queue in which it was made, whoever ends that; then the variable looks.
template <class Base>
class Held : public Base {
 public:
  using Base::Base;
  bool refresh() override { return !isHeld() && Base::refresh(); }
  void init() override {
    Base::init();
    waits = false;
  }
  void set(const void* buf, unsigned int size) override {
    Base::set(buf, size);
    waits = true;
    round = ctrlRound();
    this->refMgr.setRefresh();
  }
  void commit() const override {
    Base::commit();
    waits = false;
  }
  void endXaction() override { waits = false; }
  bool isHeld() const { return waits && round == ctrlRound(); }

 private:
  mutable bool waits = false;
  unsigned int round = 0;
};

class NumberVar : public Held<ReadWriteVarMgrSimpleInt> {
 public:
  NumberVar(int& g, RefreshMgr& r, int d, const Facts& f)
      : Held(g, r, d, f.bounds, f.overflow), type(f.type) {}
  CTRL_DATA_TYPE getType() const override { return type; }

 private:
  const CTRL_DATA_TYPE type;
};

using TextVar = Held<ReadWriteVarMgrSimpleStr>;

template <class Var>
struct Member {
  template <class... Args>
  Member(unsigned int id, unsigned int index, Args&... args)
      : var(args...), entry(id, index, var) {}
  Var var;
  CtrlReadWriteVarMgr entry;
};

constexpr unsigned int GROUP = 32;  // variables that one refresh group holds
constexpr unsigned int groups(unsigned int n) {
  return (n + GROUP - 1) / GROUP;
}

/// What a settings family owns: memory for its members, and what the registry asks for.
template <class Var, unsigned int N>
struct Store {
  Raw<Member<Var>, N> members;
  CtrlReadWrite* array[N];
  RefreshMgr refresh[groups(N)];
};

/// Settings on variables of the class `Var`.
template <class Var>
class Settings : public Family {
 public:
  ReadWriteVarMgr* variable(unsigned int k) const override { return &members[k].var; }

 protected:
  using Family::Family;
  template <unsigned int N>
  void own(Store<Var, N>& store) {
    members = at(store.members);
    array = store.array;
    refresh = store.refresh;
  }
  void follow(bool now) override {
    for (unsigned int k = 0; k < size(); ++k) {
      refresh[k / GROUP].setRefresh();
      if (now) {
        members[k].var.refresh();
      }
    }
  }
  void publish(unsigned int k, const void* data, unsigned int size) const override {
    Var& var = members[k].var;
    const bool held = var.isHeld();
    char waiting[1024];  // the longest value
    if (held) {
      var.get(waiting, sizeof waiting);
    }
    var.set(data, size);
    var.commit();
    if (held) {
      var.set(waiting, sizeof waiting);
    }
  }

  Member<Var>* members = nullptr;
  CtrlReadWrite** array = nullptr;
  RefreshMgr* refresh = nullptr;
};

class Numbers : public Settings<NumberVar> {
 protected:
  Numbers(const Facts& f, int* globals, int all, const int* each, int* before)
      : Settings(f, globals), initialAll(all), initialEach(each), last(before) {}
  void check() const override;
  void start() override;
  void reset() override;
  void tell(ChangeFn device) override;

 private:
  int initial(unsigned int k) const { return initialEach == nullptr ? initialAll : initialEach[k]; }
  const int initialAll;
  const int* const initialEach;
  int* const last;  // what was told
};

class TextSettings : public Settings<TextVar> {
 protected:
  TextSettings(const Facts& f, char* globals, const char* all, const char* const* each, char* w,
               char* before)
      : Settings(f, nullptr, globals),
        initialAll(all),
        initialEach(each),
        working(w),
        last(before) {}
  void check() const override;
  void start() override;
  void reset() override;
  void tell(ChangeFn device) override;

 private:
  const char* initial(unsigned int k) const {
    const char* const t = initialEach == nullptr ? initialAll : initialEach[k];
    return t == nullptr ? "" : t;
  }
  const char* const initialAll;
  const char* const* const initialEach;
  char* const working;
  char* const last;
};

/// The shape of the application's variables: `T`, `T[A]` or `T[A][B]`.
template <class G>
struct Shape {
  using Element = std::remove_all_extents_t<G>;
  static constexpr unsigned int NDIM = std::rank_v<G>;
  static constexpr unsigned int A = NDIM > 0 ? std::extent_v<G, 0> : 1;
  static constexpr unsigned int B = NDIM > 1 ? std::extent_v<G, 1> : 1;
  static constexpr unsigned int N = A * B;
  static_assert(NDIM <= 2, "a family has at most two dimensions");
  static_assert(A >= 1 && B >= 1, "a dimension has at least 1 position");
  static_assert(A <= 256 && B <= 256, "a dimension has at most 256 positions");
};

/// The shape of text variables, as one char for each.
template <class G>
struct TextShape;
template <std::size_t N>
struct TextShape<char[N]> {
  using type = char;
};
template <std::size_t A, std::size_t N>
struct TextShape<char[A][N]> {
  using type = char[A];
};
template <std::size_t A, std::size_t B, std::size_t N>
struct TextShape<char[A][B][N]> {
  using type = char[A][B];
};

/// The bounds list of `n` named values, if they rise; those that follow one another are joined.
void boundsOf(const Choice* choices, unsigned int n, bounds_t* rows);

/// The first of the variables.
template <class G>
auto* flat(G& g) {
  if constexpr (std::is_array_v<G>) {
    return flat(g[0]);
  } else {
    return &g;
  }
}

/// The initial values: one for all members, or the first of one for each.
template <class G, class I>
const int* eachOf(const I& initial) {
  if constexpr (std::is_array_v<I>) {
    static_assert(std::is_same_v<I, G>, "initial values have the shape of the variables");
    return flat(initial);
  } else {
    return nullptr;
  }
}
template <class I>
int allOf(const I& initial) {
  if constexpr (std::is_array_v<I>) {
    return 0;
  } else {
    return initial;
  }
}

template <class G>
class NumberFamily : public Numbers {
 public:
  static constexpr unsigned int SIZE = Shape<G>::N;  ///< members
  static constexpr Kind KIND = Kind::INTEGER;        ///< a number that is set

 protected:
  static_assert(std::is_same_v<typename Shape<G>::Element, int>, "the variables are int");
  template <class I>
  NumberFamily(const Facts& allFacts, G& forVariables, const I& initialValue)
      : Numbers(allFacts, flat(forVariables), allOf(initialValue), eachOf<G>(initialValue),
                before) {
    this->own(store);
  }

 private:
  Store<NumberVar, SIZE> store;
  int before[SIZE];
};

template <class S>
constexpr Facts facts(unsigned int id, const char* name, Kind kind, CTRL_DATA_TYPE type,
                      const bounds_t* bounds, range_t overflow, const char* unit,
                      const char* help) {
  return {id, name, kind, type, bounds, overflow, unit, help, S::NDIM, {S::A, S::B}, 0, nullptr, 0};
}

}  // namespace inner

// The parameters below have long names, since a compiler that is asked for it warns of one that
// hides a variable of the application.

/// Bounded integers on `int` variables: `int`, `int[A]` or `int[A][B]`.
template <class G = int>
class Integers : public inner::NumberFamily<G> {
 public:
  /// `varId`: variable id. `typedName`: as typed. `forVariables`: the globals. `boundsRows`:
  /// allowed values, or null for all. `overflowPolicy`: what a step past the ends does.
  /// `initialValue`: the value of a new device for all members, or an array of the variables'
  /// shape. `unitText`: of the numbers. `helpLine`: one line for people.
  template <class I>
  Integers(unsigned int varId, const char* typedName, G& forVariables, const bounds_t* boundsRows,
           range_t overflowPolicy, const I& initialValue, const char* unitText = "",
           const char* helpLine = "")
      : inner::NumberFamily<G>(
            inner::facts<inner::Shape<G>>(varId, typedName, Kind::INTEGER, DATA_TYPE_INT,
                                          boundsRows, overflowPolicy, unitText, helpLine),
            forVariables, initialValue) {}
};

/// Truth values on `int` variables, 0 or 1. A step past the ends wraps.
template <class G = int>
class Booleans : public inner::NumberFamily<G> {
 public:
  /// As Integers.
  template <class I>
  Booleans(unsigned int varId, const char* typedName, G& forVariables, const I& initialValue,
           const char* helpLine = "")
      : inner::NumberFamily<G>(
            inner::facts<inner::Shape<G>>(varId, typedName, Kind::BOOLEAN, DATA_TYPE_BOOL,
                                          ReadWriteVarMgrBool::BOUNDS, RANGE_WRAP, "", helpLine),
            forVariables, initialValue) {}
};

/// Enumerations on `int` variables: `R` named values. A step past the ends wraps.
template <class G, unsigned int R>
class Choices : public inner::NumberFamily<G> {
 public:
  /// `valueNames`: the allowed values, rising, with their names: an array of const Choice that
  /// stays. The rest as Integers.
  template <class C, class I>
  Choices(unsigned int varId, const char* typedName, G& forVariables, C (&valueNames)[R],
          const I& initialValue, const char* helpLine = "")
      : inner::NumberFamily<G>(
            inner::facts<inner::Shape<G>>(varId, typedName, Kind::CHOICE, DATA_TYPE_INT, rows,
                                          RANGE_WRAP, "", helpLine),
            forVariables, initialValue) {
    static_assert(std::is_same_v<const C, const Choice>, "the names are an array of Choice");
    inner::boundsOf(valueNames, R, rows);
    this->about.choices = valueNames;
    this->about.numChoices = R;
  }

 private:
  bounds_t rows[R + 1];
};

/// Texts in character arrays: `char[BYTES]`, `char[A][BYTES]` or `char[A][B][BYTES]`, terminators
/// included.
template <class G>
class Texts : public inner::TextSettings {
  using S = inner::Shape<typename inner::TextShape<G>::type>;
  static constexpr unsigned int BYTES = std::extent_v<G, std::rank_v<G> - 1>;
  static_assert(BYTES >= 2 && BYTES <= 1024, "a text has 1 to 1023 characters");

 public:
  static constexpr unsigned int SIZE = S::N;  ///< members
  static constexpr Kind KIND = Kind::TEXT;    ///< a text that is set

  /// `allowedChars`: allowed ones, a table of ReadWriteVarMgrStr or null for all. `initialValue`:
  /// the text of a new device. The rest as Integers.
  Texts(unsigned int varId, const char* typedName, G& forVariables, const bounds_t* allowedChars,
        const char* initialValue, const char* helpLine = "")
      : Texts(varId, typedName, forVariables, allowedChars, initialValue, nullptr, helpLine) {}
  /// The same with a text for each member, in the order of the variables.
  Texts(unsigned int varId, const char* typedName, G& forVariables, const bounds_t* allowedChars,
        const char* const (&initialValue)[SIZE], const char* helpLine = "")
      : Texts(varId, typedName, forVariables, allowedChars, nullptr, initialValue, helpLine) {}
  /// Texts in braces would be gone behind the declaration: give them a table of their own.
  Texts(unsigned int varId, const char* typedName, G& forVariables, const bounds_t* allowedChars,
        const char* const (&&initialValue)[SIZE], const char* helpLine = "") = delete;

 private:
  Texts(unsigned int varId, const char* typedName, G& forVariables, const bounds_t* allowedChars,
        const char* initialText, const char* const* initialTexts, const char* helpLine)
      : TextSettings(inner::facts<S>(varId, typedName, Kind::TEXT, DATA_TYPE_STRING, allowedChars,
                                     RANGE_CLIP, "", helpLine),
                     inner::flat(forVariables), initialText, initialTexts, working, before) {
    about.textSize = BYTES;
    own(store);
  }

  inner::Store<inner::TextVar, SIZE> store;
  char working[SIZE * BYTES];
  char before[SIZE * BYTES];
};

namespace inner {

class NumberReading : public ReadVarMgr {
 public:
  NumberReading(const Control& c, ReadFn f, const int* n) : control(c), fn(f), number(n) {}
  void get(void* buf, unsigned int size) const override {
    setBufInt(buf, size, fn != nullptr ? fn(control) : *number);
  }

 private:
  const Control control;
  const ReadFn fn;
  const int* const number;
};

class ReadingFamily : public Family {
 protected:
  ReadingFamily(const Facts& f, bool s, CtrlReadVarMgr* e, CtrlRead** a)
      : Family(f), hasSource(s), entries(e), array(a) {}
  void check() const override;
  void start() override;
  void publish(unsigned int, const void*, unsigned int) const override {}
  /// The manager of member `k`, made if need be; called once for each.
  virtual const ReadVarMgr& manager(unsigned int k) = 0;

 private:
  const bool hasSource;
  CtrlReadVarMgr* const entries;
  CtrlRead** const array;
};

class CommandEntry : public SimpleCtrlCmd {
 public:
  CommandEntry(const Control& c, RunFn f, const Facts& facts, bool& first, CtrlReadWrite** array,
               unsigned int size);
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_INT; }
  int confirm() override {
    run(control, val);
    return 0;
  }

 private:
  const Control control;
  const RunFn run;
};

class CommandFamily : public Family {
 protected:
  CommandFamily(const Facts& f, RunFn r, CommandEntry* e, CtrlReadWrite** a)
      : Family(f), run(r), entries(e), array(a) {}
  void check() const override;
  void start() override;
  void publish(unsigned int k, const void* data, unsigned int size) const override;

 private:
  const RunFn run;
  CommandEntry* const entries;
  CtrlReadWrite** const array;
  bool first = true;
};

extern const bounds_t ONE[];

}  // namespace inner

/// Values that nobody sets, of the shape `int`, `int[A]` or `int[A][B]`, or of an array of variable
/// managers.
template <class G = int>
class Readings : public inner::ReadingFamily {
  using S = inner::Shape<G>;
  using Element = typename S::Element;
  static constexpr bool NUMBER = std::is_same_v<Element, int>;
  static_assert(NUMBER || std::is_base_of_v<ReadVarMgr, Element>, "int, or a variable manager");

 public:
  static constexpr unsigned int SIZE = S::N;   ///< members
  static constexpr Kind KIND = Kind::READING;  ///< read only

  /// `readFrom`: what is read: variables of the application, or variable managers, which derive
  /// from ReadVarMgr and may hold texts. The rest as Integers.
  Readings(unsigned int varId, const char* typedName, G& readFrom, const char* unitText = "",
           const char* helpLine = "")
      : Readings(varId, typedName, inner::flat(readFrom), nullptr, unitText, helpLine) {}
  /// `readWith`: gives the present value of a member; G tells the shape, as in Readings<int[4]>.
  Readings(unsigned int varId, const char* typedName, ReadFn readWith, const char* unitText = "",
           const char* helpLine = "")
      : Readings(varId, typedName, nullptr, readWith, unitText, helpLine) {}

 private:
  Readings(unsigned int varId, const char* typedName, Element* readFrom, ReadFn readWith,
           const char* unitText, const char* helpLine)
      : ReadingFamily(inner::facts<S>(varId, typedName, Kind::READING, DATA_TYPE_INT, nullptr,
                                      RANGE_CLIP, unitText, helpLine),
                      readFrom != nullptr || readWith != nullptr, inner::at(entries), array),
        elements(readFrom),
        reader(readWith) {}

  const ReadVarMgr& manager(unsigned int k) override {
    if constexpr (NUMBER) {
      return *new (inner::at(made) + k)
          inner::NumberReading({this, k}, reader, elements == nullptr ? nullptr : elements + k);
    } else {
      return elements[k];
    }
  }

  inner::Raw<CtrlReadVarMgr, SIZE> entries;
  CtrlRead* array[SIZE];
  inner::Raw<inner::NumberReading, NUMBER ? SIZE : 1> made;
  Element* const elements;
  const ReadFn reader;
};
Readings(unsigned int, const char*, ReadFn, const char* = "", const char* = "")->Readings<int>;

/// Commands: an application function that runs when the control is confirmed. The shape is told as
/// for Readings, as in Commands<int[4]>.
template <class G = int>
class Commands : public inner::CommandFamily {
  using S = inner::Shape<G>;

 public:
  static constexpr unsigned int SIZE = S::N;   ///< members
  static constexpr Kind KIND = Kind::COMMAND;  ///< does something

  /// `carryOut`: what it does. `boundsRows`: the values that it takes; 1 alone if not told.
  Commands(unsigned int varId, const char* typedName, RunFn carryOut, const char* helpLine = "",
           const bounds_t* boundsRows = inner::ONE)
      : CommandFamily(inner::facts<S>(varId, typedName, Kind::COMMAND, DATA_TYPE_INT, boundsRows,
                                      RANGE_CLIP, "", helpLine),
                      carryOut, inner::at(entries), array) {}

 private:
  inner::Raw<inner::CommandEntry, SIZE> entries;
  CtrlReadWrite* array[SIZE];
};

}  // namespace device
