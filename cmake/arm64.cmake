# 64-bit ARM, little-endian: the tests alone, to see that nothing takes the host for the only 64-bit machine.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(DT_TRIPLET aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/${DT_TRIPLET})
