# Tests of the channel and the talker against scripted servers. The program stands between the library and the
# system's calls, to count, bend and wait for them; so it is one of its own.
add_executable(channel_tests
  CTcpIOTalk_test.cpp
  CVRXTalker_impl_test.cpp
  support/ScriptedServer.cpp
  support/SystemCalls.cpp
)
target_link_libraries(channel_tests PRIVATE vrx_objects vrx_build_options GTest::gtest_main ${CMAKE_DL_LIBS})
target_precompile_headers(channel_tests REUSE_FROM unit_tests)
gtest_discover_tests(channel_tests DISCOVERY_TIMEOUT 60)
