# Read by ctest behind the list of tests: single ones that an emulated build leaves out.

# Minutes in all, a quarter of an hour the first one; what is allocated doesn't depend on the
# processor.
set_tests_properties(
  Allocation.TheAudioThreadNeitherAllocatesNorFreesUpTo2048Frames
  Allocation.ABufferThatCannotGrowIsLeftOutOfTheChainAndTheNextGoesOn
  Allocation.ConfigureLeavesTheInstanceNotReadyOrHealthy
  PROPERTIES LABELS not-emulated)
