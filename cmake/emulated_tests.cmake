# Read by ctest behind the list of tests: single ones that an emulated build leaves out.

# Ten thousand calls, a quarter of an hour; what is allocated doesn't depend on the processor.
set_tests_properties(Allocation.TheAudioThreadNeitherAllocatesNorFreesUpTo2048Frames
  PROPERTIES LABELS not-emulated)
