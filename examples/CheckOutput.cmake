# Runs PROGRAM and compares all that it prints with the text in EXPECTED.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed ERROR_VARIABLE printed RESULT_VARIABLE result)
file(READ ${EXPECTED} expected)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} ended with ${result}:\n${printed}")
endif()
if(NOT printed STREQUAL expected)
  message(FATAL_ERROR "${PROGRAM} printed:\n${printed}\ninstead of:\n${expected}")
endif()
