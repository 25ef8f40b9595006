# Runs PROGRAM with ARGUMENTS, as on a command line with {n} for a size, with the sizes N, 2 N and 4 N under
# VALGRIND, which counts instructions. What a size more costs must grow as the size does: twice for the second step, where
# a cost that grows with the square would be four times. PREPARE, where set, is a command that makes the input of a size.
foreach(name IN ITEMS PROGRAM ARGUMENTS VALGRIND N)
  if(NOT DEFINED ${name})
    message(FATAL_ERROR "${name} is not set")
  endif()
endforeach()

separate_arguments(ARGUMENTS UNIX_COMMAND "${ARGUMENTS}")
separate_arguments(PREPARE UNIX_COMMAND "${PREPARE}")
set(counts "")
foreach(factor IN ITEMS 1 2 4)
  math(EXPR size "${N} * ${factor}")
  if(PREPARE)
    string(REPLACE "{n}" "${size}" command "${PREPARE}")
    execute_process(COMMAND ${command} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  string(REPLACE "{n}" "${size}" arguments "${ARGUMENTS}")
  execute_process(
    COMMAND "${VALGRIND}" --tool=callgrind --callgrind-out-file=/dev/null "${PROGRAM}" ${arguments}
    OUTPUT_QUIET ERROR_VARIABLE report RESULT_VARIABLE status)
  if(NOT status EQUAL 0 OR NOT report MATCHES "Collected : ([0-9]+)")
    message(FATAL_ERROR "${PROGRAM} ${arguments} ended with ${status}:\n${report}")
  endif()
  list(APPEND counts ${CMAKE_MATCH_1})
endforeach()

list(GET counts 0 once)
list(GET counts 1 twice)
list(GET counts 2 fourTimes)
math(EXPR firstStep "${twice} - ${once}")
math(EXPR secondStep "${fourTimes} - ${twice}")
math(EXPR most "${firstStep} * 26 / 10")
message(STATUS "instructions for ${N}, ${N} more and twice as many more: ${once} + ${firstStep} + ${secondStep}")
if(secondStep GREATER most)
  message(FATAL_ERROR "the cost grows faster than the size")
endif()
