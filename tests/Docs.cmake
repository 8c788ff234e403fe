# The commands that README and the guides show are run, and what they print is compared.
if(NOT TARGET vrx)
  return()
endif()

add_executable(console_blocks docs/console_blocks.cpp support/Subprocess.cpp)
target_include_directories(console_blocks PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(console_blocks PRIVATE vrx_build_options)
add_dependencies(console_blocks vrx VRX_talker_norvo)

file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/docs/*.md)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${pages})
foreach(page IN LISTS pages)
  file(STRINGS ${page} blocks REGEX "^```console$")
  cmake_path(GET page STEM name)
  if(name STREQUAL recording AND NOT TARGET vrx_capture)
    continue() # its commands are left out of this build
  endif()
  if(blocks)
    add_test(NAME docs.${name} COMMAND console_blocks ${page})
    set_tests_properties(docs.${name} PROPERTIES ENVIRONMENT_MODIFICATION
      "PATH=path_list_prepend:${PROJECT_BINARY_DIR}/examples;PATH=path_list_prepend:${PROJECT_BINARY_DIR}")
  endif()
endforeach()
set_tests_properties(docs.measuring PROPERTIES RUN_SERIAL ON) # it shows how many deadlines are missed

# The CI jobs for makers of plug-ins and servers.
get_target_property(definitions vrx_checks COMPILE_DEFINITIONS)
if(VRX_JUNIT IN_LIST definitions)
  add_test(NAME docs.ci_snippets COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/docs/ci_snippets.sh
    ${PROJECT_SOURCE_DIR}/docs/checking.md $<TARGET_FILE:vrx> ${PROJECT_BINARY_DIR}/VRX_talker_norvo.so)
endif()

# The comparison itself: tells what differs from what only varies.
add_test(NAME docs.comparison COMMAND console_blocks ${CMAKE_CURRENT_SOURCE_DIR}/docs/comparison.md)
set_tests_properties(docs.comparison PROPERTIES PASS_REGULAR_EXPRESSION "13 commands run, 7 differ")
add_test(NAME docs.comparison_of_printed COMMAND sh -c
  "echo 'took 2.5 ms, 1 failed' | $<TARGET_FILE:console_blocks> ${CMAKE_CURRENT_SOURCE_DIR}/docs/comparison.md script/x")
add_test(NAME docs.comparison_of_other_printed COMMAND sh -c
  "echo 'took 2.5 ms, 2 failed' | $<TARGET_FILE:console_blocks> ${CMAKE_CURRENT_SOURCE_DIR}/docs/comparison.md script/x")
set_tests_properties(docs.comparison_of_other_printed PROPERTIES
  PASS_REGULAR_EXPRESSION "shown:\n *took 1.0 ms, 1 failed\n *printed:\n *took 2.5 ms, 2 failed")

# The exchange in docs/protocol.md.
add_executable(protocol_page_tests
  docs/ProtocolPage_test.cpp
  support/RawClient.cpp
  support/ScriptedServer.cpp
  support/Subprocess.cpp
)
target_compile_definitions(protocol_page_tests PRIVATE
  VRX_PROGRAM="$<TARGET_FILE:vrx>" VRX_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
target_link_libraries(protocol_page_tests PRIVATE VRX_talker_norvo vrx_build_options GTest::gtest_main)
add_dependencies(protocol_page_tests vrx)
vrx_discover_tests(protocol_page_tests)

# The Wireshark dissector: what it makes of a recorded run and of odd messages. See wireshark/record and wireshark/decode.
find_program(TSHARK tshark)
if(TSHARK)
  foreach(capture exchange.pcap odd.hex)
    cmake_path(GET capture STEM name)
    add_test(NAME wireshark.${name} COMMAND sh -c
      "wireshark/decode wireshark/${capture} -2 -d tcp.port==7000,vrx | diff wireshark/${name}.txt -"
      WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
  endforeach()
  add_test(NAME wireshark.page COMMAND sh -c
    "shown=$(sed -n 's/^\\$ tshark/tshark/p' docs/protocol.md) && \
     sh -c \"$shown\" 2>/dev/null | $<TARGET_FILE:console_blocks> docs/protocol.md \"$shown\""
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(wireshark.page PROPERTIES ENVIRONMENT LC_ALL=C.UTF-8)
else()
  message(STATUS "tshark not found (Debian: tshark): the tests of the Wireshark dissector are skipped")
endif()
