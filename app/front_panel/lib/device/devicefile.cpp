#include "devicefile.h"

#include <cstdio>

#include "tessel_timer.h"

namespace device {

CtrlReadWrite** SettingsFile::table() {
  if (rows[0] != nullptr) {
    return rows;
  }
  CtrlSaved* entry = entries;
  CtrlReadWrite** row = rows;
  for (const Family* const f : controls) {
    for (unsigned int k = 0; f->isSetting() && k < f->size(); ++k, ++entry) {
      *row++ = f->text(k) != nullptr ? new (entry) CtrlSaved(*f->settable(k), f->text(k), guard)
                                     : new (entry) CtrlSaved(*f->settable(k), *f->number(k), guard);
    }
  }
  *row = nullptr;
  return rows;
}

void SettingsFile::restore(preset_bk_func_t copy) {
  if (Timer::getSysTime() == 0) {
    std::puts(
        "device: the timer thread does not run, so no save and no timeout comes due: call "
        "Timer_thread::Instance()->Init() first");
  }
  controls.keepIn(*this);
  initPresets(table(), copy);
  controls.settled(false);
}

void SettingsFile::mark() {
  if (*rows != nullptr) {  // else there is nothing to save, and no file
    Preset::Instance()->Set_need_save();
  }
}

bool SettingsFile::close() {
  Preset::Instance()->Stop();
  return !unsaved() || save();
}

}  // namespace device
