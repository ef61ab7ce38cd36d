// The base class of communication devices.
//
// It has no data, owns nothing and never stops the process; its one operation, the destructor, may
// run on any thread.
#pragma once

/// A device through which messages leave the process.
class COMDevice {
 public:
  /// Nothing to give back.
  virtual ~COMDevice();
};
