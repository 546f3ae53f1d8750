# Fails unless a program ends with 0 and prints what a file holds, and nothing else:
# cmake -D PROGRAM=<program> -D ARGUMENTS=<list> -D EXPECTED=<file> -P check_output.cmake
file(READ ${EXPECTED} expected)
execute_process(
  COMMAND ${PROGRAM} ${ARGUMENTS}
  OUTPUT_VARIABLE output
  ERROR_VARIABLE errors
  RESULT_VARIABLE result)
if(NOT result EQUAL 0 OR NOT errors STREQUAL "" OR NOT output STREQUAL expected)
  message(FATAL_ERROR "${PROGRAM} ended with ${result} and printed\n${output}${errors}instead of\n${expected}")
endif()
