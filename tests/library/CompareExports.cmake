# Compares what the library exports with the checked-in list.
execute_process(COMMAND ${NM} --dynamic --defined-only --demangle --format=posix ${LIBRARY}
  OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "[^\n]+ A [^\n]*\n" "" listing "${listing}") # the version node itself
string(REGEX REPLACE " [A-Za-z] [0-9a-f]+ ?[0-9a-f]*\n" "\n" exported "${listing}")
string(REPLACE "@@VRX_TALKER_NORVO_1" "" exported "${exported}")
string(STRIP "${exported}" exported)
string(REPLACE "\n" ";" exported "${exported}")
list(REMOVE_DUPLICATES exported) # constructors and destructors come in several kinds of one name
list(SORT exported)
string(REPLACE ";" "\n" exported "${exported}\n")

file(READ ${EXPECTED} expected)
if(NOT exported STREQUAL expected)
  file(WRITE exported_symbols.actual "${exported}")
  message(FATAL_ERROR "The exported symbols differ from ${EXPECTED}.\nCompare it with exported_symbols.actual:\n${exported}")
endif()
