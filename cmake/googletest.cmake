# Finds the installed GoogleTest. In cross builds, builds it from the sources in Debian's package
# googletest. There, ctest leaves out tests with the label not-emulated.
if(CMAKE_CROSSCOMPILING)
  find_path(ORVANE_GOOGLETEST_SOURCE googletest/CMakeLists.txt
    PATHS /usr/src/googletest NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(INSTALL_GTEST OFF)
  set(BUILD_GMOCK OFF)
  add_subdirectory(${ORVANE_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest
    EXCLUDE_FROM_ALL SYSTEM)
  foreach(name gtest gtest_main)
    target_compile_options(${name} PRIVATE -w)
    if(NOT TARGET GTest::${name})
      add_library(GTest::${name} ALIAS ${name})
    endif()
  endforeach()
  target_link_libraries(gtest INTERFACE atomic)  # the tests use 64-bit atomics
  cmake_language(DEFER CALL set_property DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES
    ${CMAKE_SOURCE_DIR}/cmake/emulated_tests.cmake)
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

# Compiles the tests' own code with little optimisation, which takes less time. What the tests link
# or load keeps its flags. Emulated tests keep theirs, too, because there the tests' own speed counts.
function(optimise_less)
  if(NOT CMAKE_CROSSCOMPILING)
    foreach(name ${ARGN})
      target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-Og>)
    endforeach()
  endif()
endfunction()

# Tests whose flags are the same share one precompiled header.
if(NOT TARGET test_headers)
  add_library(test_headers OBJECT ${CMAKE_SOURCE_DIR}/tests/fake_device.cpp)
  target_link_libraries(test_headers PRIVATE GTest::gtest_main)
  set_target_properties(test_headers PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(test_headers PRIVATE -fPIE)  # as for a program
  target_precompile_headers(test_headers PRIVATE
    <gtest/gtest.h> <filesystem> <fstream> "${CMAKE_SOURCE_DIR}/tests/signals.h")
  optimise_less(test_headers)
endif()
