# Toolchain for the device: ARMv5TE without a floating-point unit, little endian, 32 bits. Code is in ARM
# state unless a source asks for Thumb state. Debian's g++-arm-linux-gnueabi.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_FLAGS_INIT "-march=armv5te -marm -mfloat-abi=soft -Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -marm -mfloat-abi=soft -Wno-psabi")
set(triple arm-linux-gnueabi)
set(emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
