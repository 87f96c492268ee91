# 64-bit ARM; programs run under qemu's user emulation.
set(QUARVEL_TRIPLET aarch64-linux-gnu)
set(QUARVEL_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(QUARVEL_ARCHITECTURE arm64)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-linux-foreign.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${CMAKE_SYSROOT})
