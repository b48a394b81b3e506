# 32-bit x86: the device's word size with the host's sanitizers. The programs run on a 64-bit host, with
# the cross compiler's own loader and libraries.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(DT_TRIPLET i686-linux-gnu)
set(DT_SUFFIX -12)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR env)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--dynamic-linker=/usr/${DT_TRIPLET}/lib/ld-linux.so.2 -Wl,-rpath,/usr/${DT_TRIPLET}/lib")
