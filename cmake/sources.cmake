# The sources and options that all builds of the library share. From platform/ each build adds the
# sources for its kind of machine.
file(GLOB ORVANE_SOURCES RELATIVE ${CMAKE_SOURCE_DIR} CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/dsp/*.cpp ${CMAKE_SOURCE_DIR}/dsp/softfloat/*.cpp
  ${CMAKE_SOURCE_DIR}/effects/*.cpp ${CMAKE_SOURCE_DIR}/host/*.cpp ${CMAKE_SOURCE_DIR}/unit/*.cpp)

set(ORVANE_OPTIONS
  -fvisibility=hidden  # platform/export.h marks exceptions
  -fno-exceptions -fno-rtti -fno-unwind-tables -fno-asynchronous-unwind-tables
  -ffunction-sections -fdata-sections
  # The run-time library computes every filter design, even if the compiler knows the arguments.
  -fno-builtin-sin -fno-builtin-cos -fno-builtin-exp -fno-builtin-pow -fno-builtin-sinf
  -fno-builtin-cosf -fno-builtin-powf -fno-builtin-logf)

# The sources of client/ that need no file system.
set(ORVANE_CLIENT_SOURCES delay.cpp instance.cpp settings.cpp
  settings_reader.cpp settings_text.cpp stream.cpp tone.cpp)
