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

# Not a test but a run of many minutes: see script/soak.
add_executable(soak soak/soak.cpp support/ScriptedServer.cpp support/Subprocess.cpp)
target_include_directories(soak PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(soak PRIVATE vrx_build_options Threads::Threads GTest::gtest ${CMAKE_DL_LIBS})
add_dependencies(soak VRX_talker_norvo vrx)
