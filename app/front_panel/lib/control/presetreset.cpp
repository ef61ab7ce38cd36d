// Starts the store of the process over, for tests; it is not in the shipped library.
#include "presetstore.h"

void resetPresetStore() {
  presetStore.init = false;
  ++presetStore.userEpoch;
  ++presetStore.factoryEpoch;
  presetService = {};
}
