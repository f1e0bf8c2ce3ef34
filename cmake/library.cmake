# Makes two libraries from the same objects: `orvane_static` for tests that look inside, and the shared
# library that the framework loads.

include(cmake/sources.cmake)
set(platform_sources platform/system.cpp)
if(ORVANE_LIBLOG)
  list(APPEND platform_sources platform/log_liblog.cpp)
else()
  list(APPEND platform_sources platform/log_stderr.cpp)
endif()

# The device uses the assembly version, which is written for processors without a floating-point unit.
set(ORVANE_ASSEMBLY OFF)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "arm" AND ORVANE_SOFTFLOAT STREQUAL "")
  set(ORVANE_ASSEMBLY ON)
endif()
# On x86-64 there is a second library with wider vectors.
set(ORVANE_X86_64 OFF)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
  set(ORVANE_X86_64 ON)
endif()

if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
  # Other processors have room for the code of -O3, which is a third larger, in what runs with every
  # sample.
  set(hot_sources ${ORVANE_SOURCES})
  list(FILTER hot_sources INCLUDE REGEX "^(dsp|effects|unit)/")
  if(NOT ORVANE_SOFTFLOAT)  # only tests run the code for unpacked numbers
    list(FILTER hot_sources EXCLUDE REGEX "/softfloat/")
  endif()
  set_source_files_properties(${hot_sources} PROPERTIES COMPILE_OPTIONS "$<$<CONFIG:Release>:-O3>")
  set(cold_sources ${ORVANE_SOURCES} ${platform_sources})
  list(REMOVE_ITEM cold_sources ${hot_sources})
  set_source_files_properties(${cold_sources} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
endif()

if(ORVANE_ASSEMBLY)
  enable_language(ASM)
  add_compile_definitions(ORVANE_SOFTFLOAT_ASSEMBLY)
  set(hand_written dsp/softfloat/average.S dsp/softfloat/block_ends.S
    dsp/softfloat/butterfly_groups.S dsp/softfloat/contour_mix.S
    dsp/softfloat/equalizer_ends.S dsp/softfloat/limiter.S
    dsp/softfloat/spectrum_product.S dsp/softfloat/turns.S)
  # Code that runs with every sample is in ARM state, whose instructions do more each. All other code
  # (filter designs, commands, rarely used fallbacks) should be small rather than fast. It is in Thumb
  # state, except for functions that dsp/code_generation.h marks.
  set_source_files_properties(effects/steady_gains.cpp PROPERTIES COMPILE_OPTIONS -Os)
  set(small_sources ${ORVANE_SOURCES})
  list(REMOVE_ITEM small_sources dsp/softfloat/equalizer_core.cpp effects/loudness.cpp
    effects/playback_gain.cpp effects/steady_gains.cpp)
  set_source_files_properties(${small_sources} platform/system.cpp
    PROPERTIES COMPILE_OPTIONS "-Os;-mthumb")
  # With this option calls change the state themselves. Otherwise the linker adds the stubs that ARMv4T
  # needs.
  add_link_options(-Wl,--use-blx)
endif()

# Adds orvane_objectsSUFFIX, orvane_staticSUFFIX and the shared qth_orvaneSUFFIX, which goes to `folder`.
# Further arguments are compile options for them and for targets that link with the objects.
function(add_orvane_library suffix folder)
  set(sources ${ORVANE_SOURCES})
  if(suffix AND NOT ORVANE_SOFTFLOAT)  # the tests of the other library suffice for unpacked numbers
    list(FILTER sources EXCLUDE REGEX "/softfloat/")
  endif()
  add_library(orvane_objects${suffix} OBJECT ${sources} ${hand_written} ${platform_sources})
  target_compile_options(orvane_objects${suffix} PUBLIC ${ARGN} PRIVATE ${ORVANE_OPTIONS})
  # Reading these headers takes a third of the time of compiling a hot file. clang-tidy and other builds
  # read every file without them, so that a missing #include is noticed. The headers need the files' own
  # level of optimisation, because g++ takes the headers' for both.
  if(NOT CMAKE_CROSSCOMPILING)
    target_precompile_headers(orvane_objects${suffix} PRIVATE
      <algorithm> <bit> <cmath> <cstring> <memory> <type_traits> <utility>)
    set_source_files_properties(
      ${CMAKE_BINARY_DIR}/CMakeFiles/orvane_objects${suffix}.dir/cmake_pch.hxx.cxx
      PROPERTIES COMPILE_OPTIONS "$<$<CONFIG:Release>:-O3>")
  endif()

  add_library(orvane_static${suffix} STATIC)
  target_link_libraries(orvane_static${suffix} PUBLIC orvane_objects${suffix} m)

  set(library qth_orvane${suffix})
  add_library(${library} SHARED)
  target_link_libraries(${library} PRIVATE orvane_objects${suffix} m)
  if(NOT ORVANE_SANITIZE)
    # The library has its own allocation operators. The sanitizers bring theirs.
    target_sources(${library} PRIVATE platform/runtime.cpp)
    target_compile_options(${library} PRIVATE -fno-exceptions -fno-rtti)
    target_link_options(${library} PRIVATE -Wl,-z,defs)
  endif()
  set_target_properties(${library} PROPERTIES
    OUTPUT_NAME qth_orvane_ics_NOVFP
    LIBRARY_OUTPUT_DIRECTORY ${folder}
    LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/exports.map)
  # -Bsymbolic is needed because the platform's loader exports functions with the names of our entry
  # points. Both hash tables are needed because loaders of Android 4.0 know no GNU hash table.
  target_link_options(${library} PRIVATE
    -static-libgcc -static-libstdc++
    -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/exports.map
    -Wl,-Bsymbolic -Wl,--hash-style=both -Wl,--gc-sections -Wl,--as-needed
    -Wl,-z,relro -Wl,-z,now)
  if(ORVANE_LIBLOG)
    target_link_libraries(${library} PRIVATE log)
  endif()
endfunction()

add_orvane_library("" ${CMAKE_BINARY_DIR})
if(ORVANE_X86_64)
  # The library for processors with AVX2 has wider vectors and gives the same samples. It uses no fused
  # operations.
  add_orvane_library(_avx2 ${CMAKE_BINARY_DIR}/avx2 -mavx2 -mno-fma)
endif()
