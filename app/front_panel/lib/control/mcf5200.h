// The processor's own registers and the set-up of its memory: contracts of the board layer.
//
// On this platform there is no hardware under them: the bodies are empty, and the status register
// reads 0. They exist so that the code above them keeps the board's order of steps. No state; any
// thread may call them; nothing here stops the process.
#pragma once

/// Sets the status register, and with it the interrupt level, to `s`. Returns the former value.
/// On this platform nothing is set and the result is 0.
unsigned short spl(const unsigned short s);

/// Reads the status register: 0 on this platform.
unsigned short getsr();

/// Sets an access control register. Does nothing on this platform.
void set_acr(unsigned int acrval);

/// Sets the cache control register. Does nothing on this platform.
void set_cacr(const unsigned long v);

/// Sets the vector base register. Does nothing on this platform.
void set_vbr(const unsigned long v);

/// Sets up the chip select of the USB controller. Does nothing on this platform.
void init_usb_cs();

/// Sets up the memory region of the USB controller, beginning with init_usb_cs.
void init_usb_mem_reg();

/// Sets up the memory registers. Does nothing on this platform.
void init_mem_reg();

/// Sets up the cache. Does nothing on this platform.
void init_cache();
