#include "hwt.h"

void hwt_service() {}
