# Tests of the channel and the talker against scripted servers. The program stands between the library and the
# system's calls, to count, bend and wait for them; so it is one of its own.
add_executable(channel_tests
  tcpio/CTcpIOTalk_test.cpp
  talker/CVRXTalker_impl_test.cpp
  tcpio/Expiry_test.cpp
  tcpio/internal/HostTable_test.cpp
  support/ScriptedServer.cpp
  support/SystemCalls.cpp
)
target_link_libraries(channel_tests PRIVATE vrx_objects vrx_build_options GTest::gtest_main ${CMAKE_DL_LIBS})
vrx_discover_tests(channel_tests PROPERTIES
  ENVIRONMENT "TSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/tsan.supp")

# The talker on a double of its channel: replies that no real channel gives.
add_executable(talker_double_tests
  talker/CVRXTalker_impl_double_test.cpp
  talker/ChannelDouble.cpp
  ../base/StringFormat.cpp
  ../base/StringMap.cpp
  ../talker/CVRXTalker_impl.cpp
)
target_include_directories(talker_double_tests PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(talker_double_tests PRIVATE vrx_build_options GTest::gtest_main)
vrx_discover_tests(talker_double_tests)

# Sees the exports only: linked with, and loading, the shared library.
add_executable(abi_tests
  library/Abi_test.cpp
  library/ProcessEdges_test.cpp
  library/Signatures_test.cpp
  support/ScriptedServer.cpp
)
target_compile_definitions(abi_tests PRIVATE VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so")
target_link_libraries(abi_tests PRIVATE VRX_talker_norvo vrx_build_options GTest::gtest_main ${CMAKE_DL_LIBS})
vrx_discover_tests(abi_tests)

# The binutils one: clang's own leaves versioned names mangled.
find_program(VRX_NM nm REQUIRED)
add_test(NAME exported_symbols COMMAND ${CMAKE_COMMAND}
  -DLIBRARY=$<TARGET_FILE:VRX_talker_norvo>
  -DNM=${VRX_NM}
  -DEXPECTED=${CMAKE_CURRENT_SOURCE_DIR}/library/exported_symbols.txt
  -P ${CMAKE_CURRENT_SOURCE_DIR}/library/CompareExports.cmake)

# Loads and unloads the plug-in; its own usleep shortens the watchdog's ticks, so the program exports it. Sanitizers
# keep mappings of their own for what was unloaded.
if(NOT VRX_SANITIZE)
  add_executable(unload_tests library/Unload_test.cpp support/ScriptedServer.cpp)
  target_compile_definitions(unload_tests PRIVATE VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so")
  target_include_directories(unload_tests PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(unload_tests PRIVATE vrx_build_options GTest::gtest_main ${CMAKE_DL_LIBS})
  set_target_properties(unload_tests PROPERTIES ENABLE_EXPORTS ON)
  add_dependencies(unload_tests VRX_talker_norvo)
  vrx_discover_tests(unload_tests)

  # Sanitizers make frames of their own.
  add_executable(small_stack_tests library/SmallStack_test.cpp)
  target_link_libraries(small_stack_tests PRIVATE VRX_talker_norvo vrx_build_options GTest::gtest_main)
  vrx_discover_tests(small_stack_tests)
endif()

# Fails each allocation of each operation in turn.
add_executable(allocation_tests
  library/AllocationFailure_test.cpp
  support/NoMemory.cpp
  support/ScriptedServer.cpp
)
target_link_libraries(allocation_tests PRIVATE vrx_objects vrx_build_options GTest::gtest_main)
vrx_discover_tests(allocation_tests)
