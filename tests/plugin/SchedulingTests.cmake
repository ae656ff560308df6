# Tests of how the agent chooses, prepares and absorbs commands, inside the real framework.
foreach(unit Execute OutsideEvents PrepareNextCommand PrepareWrite PrepareAtomicWrite PrepareRead PrepareVerify
             ReadSelection SlideRead)
  corvane_test(${unit}Test SOURCES ${unit}Test.cpp LIBRARIES ${CORVANE_COMPLETION} corvane_model_clock)
endforeach()
corvane_test(AllocationFailureTest SOURCES AllocationFailureTest.cpp LIBRARIES ${CORVANE_COMPLETION}
                                                                               corvane_scarce_memory)
# What several threads do to it at once.
foreach(unit OutsideThreads SharedConfig)
  corvane_test(${unit}Test SOURCES ${unit}Test.cpp LIBRARIES ${CORVANE_COMPLETION} corvane_model_clock)
endforeach()
