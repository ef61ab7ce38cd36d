// The device: a four-channel signal processor, as tables of controls.
//
// This pair of files is what an application of the control library consists of, and what to copy
// for a device of your own. device.cpp holds the tables in one piece: the settings themselves,
// the variables and entries on them, the families, the pools of the registry, and the names by
// which people address a control.
//
// Everything here lives as long as the process. The main thread makes every request and is the
// only one to write `settings`; it does so with `settingsLock` held, because the preset thread
// reads them (see saving.h). A fault in the tables stops the process in deviceInit.
#pragma once

#include "saving.h"
#include "simplectrlwrapvar.h"
#include "simplevarmgr.h"

constexpr unsigned int CHANNELS = 4;    ///< signal paths of the device
constexpr unsigned int BANDS = 3;       ///< frequency bands of a channel
constexpr unsigned int INPUTS = 8;      ///< inputs that a channel can take
constexpr unsigned int NAME_SIZE = 25;  ///< bytes of the unit name, terminator included

/// Variable ids. They are part of the preset file's keys: never reuse one for something else.
enum : unsigned int {
  ID_NAME = 10,         ///< UnitName
  ID_GAIN = 20,         ///< Gain
  ID_MUTE = 30,         ///< Mute
  ID_INPUT = 40,        ///< Input
  ID_TEMPERATURE = 50,  ///< Temperature
  ID_RESTORE = 60,      ///< RestoreCommand
  ID_LIMIT = 70,        ///< Limit
};

/// The confirmed values: what the signal path of a real device would work with.
struct Settings {
  char name[NAME_SIZE];       ///< what the unit is called
  int gain[CHANNELS][BANDS];  ///< dB
  int mute[CHANNELS];         ///< 0 or 1
  int input[CHANNELS];        ///< 1 to INPUTS
  int limit;                  ///< degrees Celsius; a channel above it is too hot
};
/// The settings in effect.
extern Settings settings;
/// The settings of a new device.
extern const Settings DEFAULTS;

constexpr int GAIN_OFF = -100;  ///< dB; the channel is switched off in this band

/// Every variable on `settings`, at most 32. After a write to `settings` that did not go through
/// the registry, call setRefresh on it.
extern RefreshMgr settingsGroup;

// Each control is three objects: its variable, its entry in the registry, and what the preset file
// sees of it. Subscripts count from 0.

/// The text control.
struct UnitName {
  UnitName();
  char working[NAME_SIZE] = {};  ///< the variable's buffer
  ReadWriteVarMgrSimpleStr var;
  SimpleCtrlReadWriteVarMgr entry;
  CtrlSaved saved;
};

/// A member of the two-dimensional family; its bounds have a gap.
struct Gain {
  Gain(unsigned int channel, unsigned int band);
  ReadWriteVarMgrSimpleInt var;
  SimpleCtrlReadWriteVarMgr entry;
  CtrlSaved saved;
};

/// A boolean.
struct Mute {
  explicit Mute(unsigned int channel);
  ReadWriteVarMgrSimpleBool var;
  SimpleCtrlReadWriteVarMgr entry;
  CtrlSaved saved;
};

/// A selector, whose steps wrap at the ends.
struct Input {
  explicit Input(unsigned int channel);
  ReadWriteVarMgrSimpleInt var;
  SimpleCtrlReadWriteVarMgr entry;
  CtrlSaved saved;
};

/// A scalar.
struct Limit {
  Limit();
  ReadWriteVarMgrSimpleInt var;
  SimpleCtrlReadWriteVarMgr entry;
  CtrlSaved saved;
};

/// A value of the device that nobody sets: a variable manager of the application's own.
class Celsius : public ReadVarMgr {
 public:
  void get(void* buf, unsigned int size) const override { setBufInt(buf, size, degrees); }
  int degrees = 40;
};

/// A read-only control: it has no confirmed value, and nothing to save.
struct Temperature {
  explicit Temperature(unsigned int channel);
  Celsius var;
  SimpleCtrlReadVarMgr entry;
};

/// A control that does something when it is confirmed: all settings back to DEFAULTS.
class RestoreCommand : public SimpleCtrlCmd {
 public:
  RestoreCommand();
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_INT; }
  int confirm() override;
};

// All controls.
extern UnitName unitName;
extern Gain gains[CHANNELS][BANDS];
extern Mute mutes[CHANNELS];
extern Input inputs[CHANNELS];
extern Limit limit;
extern Temperature temperatures[CHANNELS];
extern RestoreCommand restoreCommand;

/// What a client may do with the controls of a family.
enum Access { READ_ONLY, READ_WRITE, COMMAND };

/// A family of controls as people see it.
struct Family {
  const char* name;        ///< as typed
  unsigned int id;         ///< variable id
  unsigned int ndim;       ///< 0 to 2
  unsigned int dim[2];     ///< positions in each dimension
  Access access;           ///< what a client may do
  CTRL_DATA_TYPE type;     ///< how the value is carried
  const bounds_t* bounds;  ///< allowed values, or allowed characters of a text; null for all
  range_t overflow;        ///< what a step past the ends does
  unsigned int maxText;    ///< most characters of a text
  const char* unit;        ///< with a blank in front, or empty
  const char* about;       ///< for people, one line
};

/// All families, ended by a null name.
extern const Family FAMILIES[];

/// Starts the registry with all controls. Call once, before the first request.
void deviceInit();

/// The entries that the preset file holds, ended by null; for initPresets.
CtrlReadWrite** savedControls();

/// Periodic: lets the temperatures drift, once a second.
void driftTemperatures();
