# cpack runs this, so that the same sources always give the same package. All times in the package are
# those of the last commit, or of the changelog if there is no repository.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  execute_process(
    COMMAND sh -c "git log -1 --format=%ct 2>/dev/null ||
      date -d \"$(sed -n 's/^ -- .*>  //p' packaging/changelog)\" +%s"
    WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}/..
    OUTPUT_VARIABLE seconds OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${seconds})
endif()
# The umask decides the modes of the folders that cpack makes.
execute_process(COMMAND sh -c umask OUTPUT_VARIABLE umask OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT umask MATCHES "^0*22$")
  message(FATAL_ERROR "the package's folders need a umask of 022, it is ${umask}")
endif()
