# Toolchain for ARMv7 with the smallest floating-point unit, VFPv3-D16. Floats are passed in integer
# registers, as on the device. NEON isn't used, because it flushes subnormal floats to zero, which
# changes samples. Debian's g++-arm-linux-gnueabi.
set(CMAKE_SYSTEM_PROCESSOR armv7)
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=softfp -Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=softfp -Wno-psabi")
set(triple arm-linux-gnueabi)
set(emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
