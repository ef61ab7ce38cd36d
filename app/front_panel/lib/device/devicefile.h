// The preset file of a device: every setting in "presets.xml", saved in the background.
//
//   device::Device panel(gains, limits);
//   device::PresetFile file(panel);      // static, behind the device
//   Timer_thread::Instance()->Init();    // its ticks time the saves
//   panel.start();
//   file.restore();                      // the settings of the last run
//
// From restore() on, each confirm marks the file, and the preset thread saves it (presets.h tells
// when). The file guards the globals: Controls::confirm, changed and a recall hold its lock, and an
// application that writes a global holds Controls::lock. The thread of the requests calls
// everything here.
#pragma once

#include <mutex>

#include "devicetable.h"
#include "presets.h"

namespace device {

/// The file without its memory; see PresetFile.
class SettingsFile : private Keeper {
 public:
  SettingsFile(const SettingsFile&) = delete;
  SettingsFile& operator=(const SettingsFile&) = delete;

  /// Restores the settings from the file, or writes it anew, starts the saving and tells the
  /// changes. `copy`: backs a saved file up, on the preset thread; null for none. Call once, behind
  /// Controls::start. Says so on standard output when the timer thread does not run. An
  /// eternity::exception leaves this function when the file cannot be written anew.
  void restore(preset_bk_func_t copy = nullptr);
  /// True when a confirmed value is not in the file yet.
  static bool unsaved() { return Preset::Instance()->Need_save(); }
  /// Saves now. False when the file could not be written; it then still holds what it held.
  static bool save() { return Preset::Instance()->Save_now(); }
  /// Ends the saving in the background and saves what is not saved yet. False when that failed.
  static bool close();
  /// The entries in the file, ended by null; also the control table of a trap device.
  /// REQUIRES: Controls::start has run.
  CtrlReadWrite** table();

 protected:
  SettingsFile(Controls& c, CtrlSaved* e, CtrlReadWrite** t) : controls(c), entries(e), rows(t) {}
  ~SettingsFile() = default;

 private:
  void lock() override { guard.lock(); }
  void unlock() override { guard.unlock(); }
  void mark() override;

  Controls& controls;
  CtrlSaved* const entries;
  CtrlReadWrite** const rows;
  std::mutex guard;
};

/// The file of a device with `SETTINGS` settings.
template <unsigned int SETTINGS>
class PresetFile : public SettingsFile {
 public:
  /// The settings of `device`.
  template <unsigned int F, unsigned int W, unsigned int C>
  explicit PresetFile(Device<F, W, C, SETTINGS>& device)
      : SettingsFile(device, inner::at(memory), rows) {}

 private:
  inner::Raw<CtrlSaved, SETTINGS == 0 ? 1 : SETTINGS> memory;
  CtrlReadWrite* rows[SETTINGS + 1] = {};
};

}  // namespace device
