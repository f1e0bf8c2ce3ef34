# What Debian's cross compilers have in common. The toolchain file that includes this sets `triple`,
# the prefix of the compilers' names, and `emulator`, the program of qemu-user that runs the results.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)

# Libraries beyond the C and C++ ones lie in CMAKE_SYSROOT, if that is set.
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
