# 32-bit x86 on a 64-bit x86 kernel: the sysroot's own loader starts the programs, at native speed.
set(QUARVEL_TRIPLET i686-linux-gnu)
set(QUARVEL_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(QUARVEL_ARCHITECTURE i386)
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-linux-foreign.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_SYSROOT}/lib/ld-linux.so.2
  --library-path ${CMAKE_SYSROOT}/lib/i386-linux-gnu:${CMAKE_SYSROOT}/usr/lib/i386-linux-gnu)
