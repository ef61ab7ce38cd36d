#include "mcf5200.h"

unsigned short spl(const unsigned short /*s*/) {
  return 0;
}

unsigned short getsr() {
  return 0;
}

void set_acr(unsigned int /*acrval*/) {}

void set_cacr(const unsigned long /*v*/) {}

void set_vbr(const unsigned long /*v*/) {}

void init_usb_cs() {}

void init_usb_mem_reg() {
  init_usb_cs();
}

void init_mem_reg() {}

void init_cache() {}
