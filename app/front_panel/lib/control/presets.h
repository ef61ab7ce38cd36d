// The preset file: keeps the values of all read-write controls in "presets.xml".
//
//   CtrlSaved saved(entry, volume, guard);                        // volume: the entry's global
//   CtrlReadWrite* table[] = {&saved, nullptr};
//   initPresets(table, nullptr);                                  // restores, starts the saving
//   { std::lock_guard<std::mutex> lock(guard); ctrlDoConfirm(); } // after each set
//   Preset::Instance()->Set_need_save();                          // in the file 10 s later
//
// The application owns the table and its entries, which live as long as the process. To use Preset
// without a table stops the process. Threads: see each declaration. Setup verbs: at the end.
#pragma once

#include <jthread.h>
#include <persist.h>
#include <persist_xml.h>

#include <atomic>
#include <string>

#include "ctrlwrap.h"
#include "noncopyable.h"
#include "presetrecall.h"
#include "tessel_timer.h"

/// The application's copy function: backs the saved file up. Runs on the preset thread, and no
/// exception leaves it.
using preset_bk_func_t = void (*)();

/// The one keeper of the preset file, with its thread.
///
/// The preset thread wakes once a second. It saves the file when a change is marked, which replaces
/// the file as a whole: it is complete at every moment, old or new. And it calls the copy function.
/// The first process that restores or saves the file of a directory keeps it until it ends
/// (FileLock): every save of another fails, and says so.
///
/// Of the table it calls getName, getType and get, at a time of its own and without a lock, while
/// the application changes the controls. So get has to be safe beside all that the application does
/// with the control: that of CtrlSaved is, that of an entry on a variable manager is not. Save_now
/// does the same on its caller's thread. Neither sets or confirms a control.
class Preset : public Noncopyable, private JThread {
 public:
  /// Least time between the starts of two saves, in ticks: 10 seconds.
  static constexpr unsigned int REFRESH_POLL = 10000000 / Timer::tickTime;
  /// The name of the file, taken against the working directory.
  static const std::string s_file_name;

  /// The one instance, made at the first call, on any thread; its thread is stopped at process
  /// exit.
  static Preset* Instance();

  /// Takes the control table, ended by a null pointer. Start-up thread, in front of Start.
  /// REQUIRES: `rwp` is not null; the names of its controls can be elements of an archive
  /// (isElementName), and no two are the same, for one of the two values would be lost.
  void Init(CtrlReadWrite** rwp);

  /// Writes every control of the table to `xml`, or sets and confirms every control from it, as
  /// the archive's direction says. A control that `xml` has no value for keeps its own and is
  /// reported on standard output. Exceptions of a store go to the caller. A load belongs to the
  /// thread that sets and confirms the controls; a store may run on any.
  /// REQUIRES: Init has been called.
  void xml_serialize(eternity::xml_archive& xml);

  /// Says on standard output which way `stream` goes. Transfers nothing. Any thread.
  void serialize(eternity::bin_archive& stream);

  /// Confirms every control of the table; without a table nothing. The thread of the requests.
  void Var_commit();

  /// Marks the file as out of date: a control has changed. The preset thread saves it within
  /// about a second, but not sooner than REFRESH_POLL behind the start of the last save. Any
  /// thread.
  void Set_need_save() { m_need_save = true; }

  /// True when a change is marked and no save has begun to write it. Any thread.
  bool Need_save() const { return m_need_save; }

  /// Saves now, on the calling thread, which may be any, marked or not, and behind a save that is
  /// running. True when the file is on the disk with every change that was marked before the call;
  /// false, and the file is marked, when it is not; the reason is on standard output. An
  /// application that ends saves what is left so:
  ///
  ///   Preset::Instance()->Stop();
  ///   const bool kept = !Preset::Instance()->Need_save() || Preset::Instance()->Save_now();
  ///
  /// REQUIRES: Init has been called.
  bool Save_now();

  /// Prints a heading; there is nothing further to show. Any thread.
  void Dump();

  /// A diagnostic that initialises, reads, prints and confirms every control. It resets them all,
  /// but for those behind a CtrlSaved, whose init does nothing. The thread of the requests.
  void Test();

  /// Starts the preset thread and says so on standard output; initPresets does it. Returns what
  /// JThread::Start returns. Any thread.
  int Start();

  /// Ends the preset thread and says so on standard output; a save or copy that is running is
  /// finished first, so the caller holds no lock that a control's get or the copy function takes.
  /// Returns what JThread::Kill returns; harmless without a thread. Any thread; from the copy
  /// function nothing is waited for.
  int Stop();

 private:
  Preset();
  ~Preset() override;

  void* Thread() override;
  bool save(eternity::xml_archive& xml);

  std::atomic<CtrlReadWrite**> m_rwp{nullptr};
  std::atomic<bool> m_need_save{false};
  std::atomic<bool> m_need_copy{false};  // a good save that the copy function has not seen
};

/// Restores the controls of `rwp`, a table ended by a null pointer, from the preset file, and
/// starts the preset thread. When the file is missing or cannot be read, it is written anew with
/// the values that the controls hold. One that is there is kept aside then, once the new one is
/// complete: as presets.xml.damaged-1 and so on (keepAside) when what it holds is damaged, as
/// presets.xml.unread-1 when it could not be opened or read to its end. `func` is the copy
/// function; null keeps that of an earlier call. Does nothing when the table is null or empty. An
/// eternity::exception leaves this function, with the old file in its place and no thread started,
/// when the file cannot be written anew. Call once, with the timer thread running, on the thread of
/// the requests, which is not cancelled meanwhile.
void initPresets(CtrlReadWrite** rwp, void (*func)());

// The setup verbs keep a list of variables (presetmake.h) in the preset store, packed to the bit,
// as the setup and as any number of user setups; a save is a record that the store writes in its
// own time, and a recall brings it back as one change, also that of an older firmware:
//
//   initPresets(list);
//   saveUserSetup(3);
//   recallUserSetup(3);
//
// They share one buffer and run on the thread of the store (presetmgr.h).

/// Takes the field list of the setup verbs and brings its variables to their initial values, and
/// reports the version of the list on standard output. The list, closed by a row without a field,
/// stays in use. Call once, before any other setup verb.
void initPresets(verPresetField_t* list);

// An image of the list has at most 1,024 bytes and a version of 1 byte; presetrecall.h tells what
// happens beyond version 255. User setup `which` is the record of type `which` + 1, of which the
// store keeps 13 bits: 0 to 0x1FFE are user setups of their own, and 0x1FFF is the setup itself.
// REQUIRES of all that need the list: initPresets has been called with one.

/// Makes what the variables of the list hold take effect: applyPreset, announced on standard
/// output. Reads no record: see recallSetup.
int loadSetup();

/// Saves the setup. 0; 1: the store has no free entry; 2: the store has no room. An image that is
/// too large is a fatal assertion. A record that is open elsewhere is not replaced: a second one
/// comes beside it, so close handles on it first.
int saveSetup();

/// loadSetup for user setup `which`, without the announcement: it does the same.
int loadUserSetup(unsigned int which);

/// Saves user setup `which`; as saveSetup.
int saveUserSetup(unsigned int which);

/// loadUserSetup and saveUserSetup for a list of the caller and any record type.
int loadType(unsigned short type, const verPresetField_t* list);
/// As loadType.
int saveType(unsigned short type, const verPresetField_t* list);

/// Brings the saved setup back as one change: recallPreset of its record, which either takes
/// effect as a whole or changes nothing. Any text of the list whose character class needs 4 bits
/// and more, as all of ReadWriteVarMgrStr do, is covered by the undo memory of the verbs.
recall_t recallSetup(recallNewer_t newer = RECALL_KEEP_NEWER);

/// Brings user setup `which` back; as recallSetup.
recall_t recallUserSetup(unsigned int which, recallNewer_t newer = RECALL_KEEP_NEWER);

/// Removes user setup `which` from the store. ERR_OK; ERR_NOT_FOUND, also for a number whose
/// record is the setup itself; ERR_CANNOT_OPEN: it is open elsewhere, and stays.
int removeUserSetup(unsigned int which);

/// Tells whether there is a record for user setup `which`; false for a number whose record is the
/// setup itself.
bool userSetupExists(unsigned int which);

/// Lists the user setups in ascending order: writes the first `room` of their numbers to `which`
/// and returns how many there are. Every record but the setup counts, a buffer saved with
/// saveBUFPreset too: keep the types of those apart.
unsigned int listUserSetups(unsigned int* which, unsigned int room);

/// Saves the `len` bytes at `buf` as the record of `type`. 0, or 1: no entry or no room.
int saveBUFPreset(unsigned short type, unsigned int len, const void* buf);

/// Reads the record of `type` into the `len` bytes at `buf`, cut to them; how many came is not
/// told. 0, or 1, and `buf` is as it was: there is no record, or it is open elsewhere.
int loadBUFPreset(unsigned short type, unsigned int len, void* buf);
