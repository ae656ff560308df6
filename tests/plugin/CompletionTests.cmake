# Tests of what the agent does with finished commands, at the start and stop of a test and after a reset, inside the
# real framework.
add_library(corvane_completion_bench OBJECT support/CompletionBench.cpp)
corvane_target(corvane_completion_bench)
target_include_directories(corvane_completion_bench PUBLIC ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR})
target_link_libraries(corvane_completion_bench PUBLIC corvane_agent_objects vendrel ostra)

add_library(corvane_scarce_memory OBJECT support/ScarceMemory.cpp)
corvane_target(corvane_scarce_memory)
target_include_directories(corvane_scarce_memory PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})

set(CORVANE_COMPLETION corvane_agent_objects corvane_completion_bench vendrel ostra)

foreach(unit WriteCompletion PreReadCompletion VerifyCompletion ReadCompletion Compare CompareAtomic JudgeInPlace Miscompare
             LostCommands StopTest)
  corvane_test(${unit}Test SOURCES ${unit}Test.cpp LIBRARIES ${CORVANE_COMPLETION})
endforeach()
foreach(unit DeviceReset RecordQueue ReferenceAudit)
  corvane_test(${unit}Test SOURCES ${unit}Test.cpp LIBRARIES ${CORVANE_COMPLETION} corvane_scarce_memory)
endforeach()
corvane_test(StartTestTest SOURCES StartTestTest.cpp LIBRARIES ${CORVANE_COMPLETION} corvane_scarce_memory
                                                               corvane_model_clock)
