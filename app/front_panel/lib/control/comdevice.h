// The base class of communication devices. No data; owns nothing; any thread.
#pragma once

/// A device through which messages leave the process.
class COMDevice {
 public:
  virtual ~COMDevice();
};
