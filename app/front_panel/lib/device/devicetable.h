// The device: all families in one object, started, walked and asked.
//
//   device::Device panel(gains, limits, name);   // static: pools, arrays and queue are counted
//   here int main() {
//     panel.start();
//     device::Control gain = panel.find("gain", 2, 1);
//     if (panel.set(gain, -6) == CTRL_ERR_SUCCESS) panel.confirm();
//   }
//
// One device per process: it stands on the registry (ctrlsys.h), whose requests by number work
// beside it. Confirm and cancel what they set by the device too: ctrlDoConfirm publishes, but
// nothing is saved or told before the next confirm or changed() of the device. The device holds the
// addresses of its families, which live as long as the process. One thread, the one of the
// requests, calls everything here; nothing allocates. A mistake in what was told stops the process
// in start(), behind a line that names it; a request is only ever refused. devicetext.h writes and
// reads values as text; devicefile.h, devicesetups.h and devicetraps.h keep them and tell of them,
// each only in a program that includes it.
#pragma once

#include "devicefamily.h"

namespace device {

/// What stands behind the confirmed values: the preset file, as far as there is one.
class Keeper {
 public:
  virtual void lock() = 0;    ///< in front of each write to the globals
  virtual void unlock() = 0;  ///< behind it
  virtual void mark() = 0;    ///< confirmed values have changed

 protected:
  ~Keeper() = default;
};

/// One set of a request.
struct Setting {
  Control control;    ///< what is set
  const void* data;   ///< the value buffer
  unsigned int size;  ///< its bytes
};

/// The controls of a device, for everything that shows or serves them; see Device.
class Controls {
 public:
  Controls(const Controls&) = delete;  ///< the registry holds its addresses
  Controls& operator=(const Controls&) = delete;

  /// Checks all that was told, gives the globals their initial values and starts the registry.
  /// Call once, before anything else. REQUIRES: no other start and no ctrl_sys_init before it.
  void start();

  /// The families in the order told, for a loop.
  Family* const* begin() const { return list; }
  Family* const* end() const { return list + numFamilies; }

  /// The family with the name in the `length` characters at `name`, or null.
  const Family* findFamily(const char* name, std::size_t length) const;
  /// The family with this variable id, or null.
  const Family* findFamily(unsigned int id) const;
  /// The control of a name and its subscripts, or none: Control::family is null.
  Control find(const char* name, unsigned int first = 0, unsigned int second = 0) const;
  /// The control of a variable id and index, or none.
  Control findNumber(unsigned int id, unsigned int index) const;

  /// Reads the present value into the value buffer `buf`: what a set that waits will make it, else
  /// the confirmed value. REQUIRES: `control` is one of this device.
  void get(const Control& control, void* buf, unsigned int size) const;
  /// The present number, of a control that is one.
  int get(const Control& control) const;

  /// Checks a value and sets it, to be confirmed: ctrlDoValidateSet without its lines on standard
  /// output. A control that waits already waits once, in its new place. CTRL_ERR_SUCCESS;
  /// CTRL_ERR_PARAM for a value that is not allowed, a text that does not fit, a reading and none;
  /// CTRL_ERR_NOBUFFER when the queue is full, which requests by number alone can cause.
  int set(const Control& control, const void* data, unsigned int size);
  /// Sets a number.
  int set(const Control& control, int value);
  /// Sets a text.
  int set(const Control& control, const char* text);
  /// Tells whether set would take the value. Changes nothing that counts.
  int validate(const Control& control, const void* data, unsigned int size) const;

  /// How many controls wait to be confirmed.
  unsigned int waiting() const;
  /// Makes everything that waits take effect, in the order of the sets; then tells the changes.
  /// Returns how many controls there were. REQUIRES: not called by a command's function.
  unsigned int confirm();
  /// Takes back everything that waits: nothing of it is published, and the working copies follow
  /// their globals again. Returns how many controls there were. REQUIRES as confirm.
  unsigned int cancel();

  /// Carries a whole request out, or nothing of it: checks all settings, and if each is allowed
  /// makes all of them take effect in their order, as one change. What waits for confirm() goes on
  /// waiting, with its own values. Returns `count`, or the number of the first setting that is
  /// refused.
  unsigned int carryOut(const Setting* settings, unsigned int count);

  /// Writes the initial values to all globals, for a command's function; a set that stands behind
  /// the command in its request keeps its value. Elsewhere hold lock() round it and call changed()
  /// behind it.
  void reset();
  /// The application has written globals itself: the variables follow them, the file is marked and
  /// the changes are told. A set that waits goes on waiting. Write with lock() held when there is a
  /// preset file.
  void changed();
  /// Has the changes of all families told to `fn`, behind the family's own function; null for none.
  /// REQUIRES: the device has not started.
  void onChange(ChangeFn fn);

  /// Guards a write to the globals against the preset thread; nothing without a preset file.
  /// confirm holds it round the functions of commands.
  void lock();
  void unlock();
  /// Puts a preset file behind the confirmed values; PresetFile does.
  void keepIn(Keeper& k) { keeper = &k; }
  /// The variables follow their globals, all but those whose set waits.
  void follow();
  /// Confirmed values may have changed: marks the file if `mark`, and tells the changes, behind the
  /// confirm when a command calls it.
  void settled(bool mark);

 protected:
  struct Storage {
    Family** families;
    unsigned int numFamilies;
    AVLTree* rw;
    AVLTree* ro;
    AVLTree* byName;
    AVLTree* byId;
    CtrlReadWrite** queue;
    unsigned int queueSize;
  };
  explicit Controls(const Storage& s) : store(s), list(s.families), numFamilies(s.numFamilies) {}
  ~Controls() = default;

 private:
  void enter(Family& family);
  void checkAllTaken() const;

  const Storage store;
  Family* const* const list;
  const unsigned int numFamilies;
  Keeper* keeper = nullptr;
  ChangeFn told = nullptr;
  bool started = false;
  bool confirming = false;
  bool followBehind = false;
  bool telling = false;
  bool tellAgain = false;
};

/// A payload of the trees that find a family.
struct FamilyNode {
  typedef Family* Field __attribute__((aligned(4)));
  Field family;  ///< the first one with this key
};

/// The families of a device: Device panel(gains, limits). The arguments of the template follow from
/// those of the constructor: families, read-write families, read-write controls, settings.
template <unsigned int FAMILIES, unsigned int RW_FAMILIES, unsigned int RW_CONTROLS,
          unsigned int SETTINGS>
class Device : public Controls {
 public:
  static constexpr unsigned int NUM_SETTINGS = SETTINGS;  ///< controls that a preset file keeps

  /// Takes the families in the order in which they are shown and saved. Each stands there once.
  template <class... F>
  explicit Device(F&... families)
      : Controls({list, FAMILIES, &rw, &ro, &byName, &byId, queue, RW_CONTROLS}),
        list{&families...},
        rw(rwPool, sizeof rwPool, sizeof(ReadWriteNode)),
        ro(roPool, sizeof roPool, sizeof(ReadNode)),
        byName(namePool, sizeof namePool, sizeof(FamilyNode)),
        byId(idPool, sizeof idPool, sizeof(FamilyNode)) {
    static_assert(sizeof...(F) == FAMILIES, "let the compiler count: Device panel(...)");
  }

 private:
  static constexpr unsigned int slots(unsigned int n, unsigned int payload) {
    return (n == 0 ? 1 : n) * (AVLTree::NODE_SIZE + payload);
  }
  Family* list[FAMILIES];
  alignas(4) char rwPool[slots(RW_FAMILIES, sizeof(ReadWriteNode))];
  alignas(4) char roPool[slots(FAMILIES - RW_FAMILIES, sizeof(ReadNode))];
  alignas(4) char namePool[slots(FAMILIES, sizeof(FamilyNode))];
  alignas(4) char idPool[slots(FAMILIES, sizeof(FamilyNode))];
  AVLTree rw, ro, byName, byId;
  CtrlReadWrite* queue[RW_CONTROLS == 0 ? 1 : RW_CONTROLS];
};

namespace inner {

template <class... F>
constexpr unsigned int countFamilies(bool (*counts)(Kind)) {
  return (0U + ... + (counts(F::KIND) ? 1U : 0U));
}
template <class... F>
constexpr unsigned int countControls(bool (*counts)(Kind)) {
  return (0U + ... + (counts(F::KIND) ? F::SIZE : 0U));
}
constexpr bool isSettable(Kind kind) {
  return kind != Kind::READING;
}
constexpr bool isSaved(Kind kind) {
  return kind != Kind::READING && kind != Kind::COMMAND;
}

}  // namespace inner

template <class... F>
Device(F&...) -> Device<sizeof...(F), inner::countFamilies<F...>(inner::isSettable),
                        inner::countControls<F...>(inner::isSettable),
                        inner::countControls<F...>(inner::isSaved)>;

}  // namespace device
