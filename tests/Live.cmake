# Tests of the bridge between real-time callbacks and a talker.
if(NOT TARGET vrx_live)
  return()
endif()

add_executable(live_tests
  live/Bridge_test.cpp
  live/Latency_test.cpp
  live/Slots_test.cpp
  live/Stream_test.cpp
  live/Worker_test.cpp
)
target_link_libraries(live_tests PRIVATE vrx_live vrx_build_options GTest::gtest_main)
gtest_discover_tests(live_tests DISCOVERY_TIMEOUT 60)
