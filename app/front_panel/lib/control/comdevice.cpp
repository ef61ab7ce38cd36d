#include "comdevice.h"

COMDevice::~COMDevice() = default;
