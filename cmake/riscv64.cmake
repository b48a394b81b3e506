# 64-bit RISC-V, little-endian: the tests alone, like 64-bit ARM's.
set(CMAKE_SYSTEM_PROCESSOR riscv64)
set(DT_TRIPLET riscv64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-riscv64 -L /usr/${DT_TRIPLET})
