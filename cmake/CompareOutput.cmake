# Runs PROGRAM with ARGUMENTS, as on a command line, and compares its standard output with the file EXPECTED; EMULATOR,
# if set, runs the program. It must exit with STATUS, or 0. EXPECTED_REPORTS, if set, is a file with the lines of standard
# error that begin with REPORTS_OF and a colon, which are the program's own.
if(NOT DEFINED STATUS)
  set(STATUS 0)
endif()
separate_arguments(arguments UNIX_COMMAND "${ARGUMENTS}")
execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${arguments}
  OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE status)
if(NOT status EQUAL STATUS)
  message(FATAL_ERROR "${PROGRAM} ended with ${status}:\n${output}${errors}")
endif()

function(compare what printed expected_file)
  string(REPLACE "\r\n" "\n" printed "${printed}")
  file(READ "${expected_file}" expected)
  if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "${PROGRAM} ${what}:\n${printed}\nexpected (${expected_file}):\n${expected}")
  endif()
endfunction()

compare(printed "${output}" "${EXPECTED}")
if(EXPECTED_REPORTS)
  # A semicolon separates the elements of a list, so those of the reports are put aside.
  string(ASCII 1 semicolon)
  string(REPLACE ";" "${semicolon}" reports "${errors}")
  string(REGEX MATCHALL "${REPORTS_OF}: [^\n]*\n" reports "${reports}")
  string(REPLACE ";" "" reports "${reports}")
  string(REPLACE "${semicolon}" ";" reports "${reports}")
  compare(reported "${reports}" "${EXPECTED_REPORTS}")
endif()
