# Labels the tests that an emulated build leaves out. ctest reads this file after the list of tests.

# Under emulation these take minutes, and the first one a quarter of an hour. Allocations don't depend
# on the processor, so other builds test enough.
set_tests_properties(
  Allocation.TheAudioThreadNeitherAllocatesNorFreesUpTo2048Frames
  Allocation.ABufferThatCannotGrowIsLeftOutOfTheChainAndTheNextGoesOn
  Allocation.ConfigureLeavesTheInstanceNotReadyOrHealthy
  PROPERTIES LABELS not-emulated)
