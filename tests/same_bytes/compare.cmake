# Runs PROGRAM, through EMULATOR if one is given, and compares what it prints with the file EXPECTED.
execute_process(COMMAND ${EMULATOR} ${PROGRAM} OUTPUT_VARIABLE printed RESULT_VARIABLE status)
file(READ ${EXPECTED} expected)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} ended with ${status}")
endif()
if(NOT printed STREQUAL expected)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/same_bytes.txt "${printed}")
  message(FATAL_ERROR "Not the same bytes. What was printed is in ${CMAKE_CURRENT_BINARY_DIR}/same_bytes.txt; where the "
                      "change is meant, copy it over ${EXPECTED}")
endif()
