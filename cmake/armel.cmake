# 32-bit ARM, little-endian, software floating point.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(DT_TRIPLET arm-linux-gnueabi)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # notes about compilers older than GCC 7
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${DT_TRIPLET})
