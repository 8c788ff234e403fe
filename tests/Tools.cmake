# Tests of the vrx program: its parts as units, and the built program started from outside.
if(NOT TARGET vrx)
  return()
endif()

add_executable(tool_tests
  ${PROJECT_SOURCE_DIR}/tools/Faults.cpp
  ${PROJECT_SOURCE_DIR}/tools/Processing.cpp
  ${PROJECT_SOURCE_DIR}/tools/ServerProtocol.cpp
  support/RawClient.cpp
  support/Subprocess.cpp
  support/Subprocess_test.cpp
  tools/Faults_test.cpp
  tools/Processing_test.cpp
  tools/ServerProtocol_test.cpp
  tools/serve_test.cpp
)
target_compile_definitions(tool_tests PRIVATE
  VRX_PROGRAM="$<TARGET_FILE:vrx>")
target_include_directories(tool_tests PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(tool_tests PRIVATE vrx_build_options Threads::Threads GTest::gtest_main)
add_dependencies(tool_tests vrx)
gtest_discover_tests(tool_tests DISCOVERY_TIMEOUT 60)

# Not tests but runs of their own: see script/soak and script/fault-table.
foreach(run soak fault_table)
  add_executable(${run} reliability/${run}.cpp support/Subprocess.cpp)
  target_include_directories(${run} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${run} PRIVATE vrx_build_options Threads::Threads ${CMAKE_DL_LIBS})
  add_dependencies(${run} VRX_talker_norvo vrx)
endforeach()
target_sources(soak PRIVATE support/ScriptedServer.cpp)
target_link_libraries(soak PRIVATE GTest::gtest)
