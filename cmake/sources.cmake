# What every build of the library has in common; platform/ has a source per kind of machine.
file(GLOB ORVANE_SOURCES RELATIVE ${CMAKE_SOURCE_DIR} CONFIGURE_DEPENDS
  ${CMAKE_SOURCE_DIR}/dsp/*.cpp ${CMAKE_SOURCE_DIR}/dsp/softfloat/*.cpp
  ${CMAKE_SOURCE_DIR}/effects/*.cpp ${CMAKE_SOURCE_DIR}/host/*.cpp ${CMAKE_SOURCE_DIR}/unit/*.cpp)

set(ORVANE_OPTIONS
  -fvisibility=hidden  # but for what platform/export.h marks
  -fno-exceptions -fno-rtti -fno-unwind-tables -fno-asynchronous-unwind-tables
  -ffunction-sections -fdata-sections
  # The run-time library computes every design, whatever a compiler knows of its arguments.
  -fno-builtin-sin -fno-builtin-cos -fno-builtin-exp -fno-builtin-pow -fno-builtin-sinf
  -fno-builtin-cosf -fno-builtin-powf -fno-builtin-logf)

# Of client/, what runs the library without a file system.
set(ORVANE_CLIENT_SOURCES delay.cpp instance.cpp piece_stream.cpp settings.cpp
  settings_text.cpp stream.cpp tone.cpp)
