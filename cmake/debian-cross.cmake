# The common part of the toolchain files for Debian's cross compilers. The file that includes this sets
# `triple`, the prefix of the compilers' names, and `emulator`, the program of qemu-user that runs the
# compiled programs.
set(CMAKE_SYSTEM_NAME Linux)
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
