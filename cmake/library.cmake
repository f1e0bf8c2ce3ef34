# The library, twice from the same objects: `orvane_static` for tests that look inside, and the
# shared library that the framework loads.

set(ORVANE_SOURCES
  dsp/band_filters.cpp
  dsp/band_spliter.cpp
  dsp/biquad.cpp
  dsp/biquad_fp.cpp
  dsp/fft_r24.cpp
  dsp/fir_window.cpp
  dsp/softfloat/band_convolver.cpp
  dsp/softfloat/contour_mix.cpp
  dsp/softfloat/equalizer_core.cpp
  dsp/planar_fft.cpp
  dsp/wave_buffer.cpp
  effects/cross_fader.cpp
  effects/fir_equalizer.cpp
  effects/limiter.cpp
  effects/limiter_core.cpp
  effects/limiter_fp.cpp
  effects/loudness.cpp
  effects/orvane_sound.cpp
  effects/orvane_sound_block.cpp
  effects/playback_gain.cpp
  host/effect.cpp
  host/library.cpp
  host/reply.cpp
  platform/clock.cpp
  platform/file.cpp
  unit/chain.cpp
  unit/process_unit_orvane.cpp
)

if(CMAKE_SYSTEM_PROCESSOR STREQUAL "arm" AND ORVANE_SOFTFLOAT STREQUAL "")
  enable_language(ASM)
  # There these hold designs, commands and forms that only step in: small before fast.
  set_source_files_properties(dsp/band_filters.cpp dsp/band_spliter.cpp dsp/biquad.cpp
    dsp/fft_r24.cpp dsp/fir_window.cpp dsp/planar_fft.cpp effects/cross_fader.cpp
    effects/fir_equalizer.cpp effects/orvane_sound.cpp PROPERTIES COMPILE_OPTIONS -Os)
  add_compile_definitions(ORVANE_SOFTFLOAT_ASSEMBLY)
  list(APPEND ORVANE_SOURCES dsp/softfloat/average.S dsp/softfloat/butterfly_groups.S
       dsp/softfloat/spectrum_product.S)
endif()

if(ORVANE_LIBLOG)
  set(log_source platform/log_liblog.cpp)
else()
  set(log_source platform/log_stderr.cpp)
endif()

add_library(orvane_objects OBJECT ${ORVANE_SOURCES} ${log_source})
target_compile_options(orvane_objects PRIVATE
  -fvisibility=hidden  # but for what platform/export.h marks
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions> $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>
  -fno-unwind-tables -fno-asynchronous-unwind-tables
  -ffunction-sections -fdata-sections
  # The run-time library computes every design, whatever a compiler knows of its arguments.
  -fno-builtin-sin -fno-builtin-cos -fno-builtin-exp -fno-builtin-pow -fno-builtin-sinf
  -fno-builtin-cosf -fno-builtin-powf -fno-builtin-logf)

add_library(orvane_static STATIC)
target_link_libraries(orvane_static PUBLIC orvane_objects m)

add_library(qth_orvane SHARED)
target_link_libraries(qth_orvane PRIVATE orvane_objects m)
if(NOT ORVANE_SANITIZE)
  # Its own allocation operators; the sanitizers bring theirs.
  target_sources(qth_orvane PRIVATE platform/runtime.cpp)
  target_compile_options(qth_orvane PRIVATE -fno-exceptions -fno-rtti)
  target_link_options(qth_orvane PRIVATE -Wl,-z,defs)
endif()
set_target_properties(qth_orvane PROPERTIES
  OUTPUT_NAME qth_orvane_ics_NOVFP
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
  LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/exports.map)
# -Bsymbolic: the platform's loader exports functions with the names of our entry points.
# Both hash tables: loaders of Android 4.0 know no GNU hash table.
target_link_options(qth_orvane PRIVATE
  -static-libgcc -static-libstdc++
  -Wl,--version-script=${CMAKE_SOURCE_DIR}/cmake/exports.map
  -Wl,-Bsymbolic -Wl,--hash-style=both -Wl,--gc-sections -Wl,--as-needed
  -Wl,-z,relro -Wl,-z,now)
if(ORVANE_LIBLOG)
  target_link_libraries(qth_orvane PRIVATE log)
endif()
