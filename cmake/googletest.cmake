# GoogleTest: the installed one, or built from its sources (Debian's package googletest) where the
# tests are compiled for another machine. There, ctest leaves out what has the label not-emulated.
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
  target_link_libraries(gtest INTERFACE atomic)  # 64-bit atomics of the tests
  cmake_language(DEFER CALL set_property DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES
    ${CMAKE_SOURCE_DIR}/cmake/emulated_tests.cmake)
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)
