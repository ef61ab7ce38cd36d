# The target's word size and byte order, for tests under emulation: 32-bit big-endian Linux.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR m68k)
set(CMAKE_CXX_COMPILER m68k-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-m68k -L /usr/m68k-linux-gnu)

# Libraries and headers come from the target's root only; programs run on the host.
set(CMAKE_FIND_ROOT_PATH /usr/m68k-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
