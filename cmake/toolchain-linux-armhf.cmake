# 32-bit ARM, hard float; programs run under qemu's user emulation.
set(QUARVEL_TRIPLET arm-linux-gnueabihf)
set(QUARVEL_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(QUARVEL_ARCHITECTURE armhf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-linux-foreign.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})
