# Toolchain for Debian's cross compilers. ORVANE_PROCESSOR names what is built for:
#
#   arm      the device: ARMv5TE without a floating-point unit, little endian. Code is in ARM state unless
#            a source asks for Thumb state. Debian's g++-arm-linux-gnueabi
#   armv7    ARMv7 with the smallest floating-point unit, VFPv3-D16. Floats are passed in integer
#            registers, as on the device. NEON isn't used, because it flushes subnormal floats to zero,
#            which changes samples. Debian's g++-arm-linux-gnueabi
#   aarch64  every 64-bit ARM processor: Debian's g++-aarch64-linux-gnu
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVANE_PROCESSOR)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${ORVANE_PROCESSOR})
set(triple arm-linux-gnueabi)
set(emulator qemu-arm)
if(ORVANE_PROCESSOR STREQUAL "arm")
  set(flags "-march=armv5te -marm -mfloat-abi=soft -Wno-psabi")
elseif(ORVANE_PROCESSOR STREQUAL "armv7")
  set(flags "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=softfp -Wno-psabi")
elseif(ORVANE_PROCESSOR STREQUAL "aarch64")
  set(triple aarch64-linux-gnu)
  set(emulator qemu-aarch64)
  set(flags "")
else()
  message(FATAL_ERROR "ORVANE_PROCESSOR must be arm, armv7 or aarch64")
endif()
set(CMAKE_C_FLAGS_INIT "${flags}")
set(CMAKE_CXX_FLAGS_INIT "${flags}")
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)

# If CMAKE_SYSROOT is set, libraries other than the C and C++ ones are there.
if(CMAKE_SYSROOT)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L ${CMAKE_SYSROOT})
else()
  set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L /usr/${triple})
endif()
set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
