# Tests of the bridge between real-time callbacks and a talker.
if(NOT TARGET vrx_live)
  return()
endif()

add_executable(live_tests
  live/Bridge_test.cpp
  live/Latency_test.cpp
  live/Slots_test.cpp
  live/Stream_test.cpp
  live/TimeHistogram_test.cpp
  live/Worker_test.cpp
)
target_link_libraries(live_tests PRIVATE vrx_live vrx_build_options GTest::gtest_main)
vrx_discover_tests(live_tests)

# Counts what the callback's thread does: brings the heap's functions itself, which a sanitizer has taken.
if(NOT VRX_SANITIZE)
  add_executable(realtime_tests
    live/Bridge_realtime_test.cpp
    support/RealTimeCounts.cpp
  )
  target_link_libraries(realtime_tests PRIVATE vrx_live vrx_build_options GTest::gtest_main ${CMAKE_DL_LIBS})
  vrx_discover_tests(realtime_tests)
endif()

if(TARGET vrx_jack)
  add_executable(jack_tests
    support/FakeJack.cpp
    tools/jack/JackClient_test.cpp
  )
  target_link_libraries(jack_tests PRIVATE vrx_jack PkgConfig::JACK vrx_build_options GTest::gtest_main)
  vrx_discover_tests(jack_tests)

  # The program itself, with real JACK servers of a dummy driver: one process for all, and nothing beside it.
  add_executable(live_command_tests
    support/Subprocess.cpp
    tools/commands/Live_test.cpp
  )
  target_compile_definitions(live_command_tests PRIVATE
    VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so"
    VRX_PROGRAM="$<TARGET_FILE:vrx>")
  target_link_libraries(live_command_tests PRIVATE vrx_jack PkgConfig::JACK vrx_build_options GTest::gtest_main)
  add_dependencies(live_command_tests vrx)
  add_test(NAME live_command_tests COMMAND live_command_tests)
  set_tests_properties(live_command_tests PROPERTIES RUN_SERIAL ON TIMEOUT 600)

  # Looks at clients and hosts that others start: under PipeWire, and the plug-in's hosts that play in real time.
  add_executable(host_noise lv2/hosts/noise.cpp)
  target_link_libraries(host_noise PRIVATE PkgConfig::JACK vrx_build_options Threads::Threads)

  add_test(NAME live.pipewire COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/live/pipewire.sh $<TARGET_FILE:vrx>
           $<TARGET_FILE:host_noise>)
  set_tests_properties(live.pipewire PROPERTIES RUN_SERIAL ON SKIP_RETURN_CODE 77 TIMEOUT 120)

  # Not a test but a run of its own: see script/soak-live.
  add_executable(soak_live reliability/soak_live.cpp support/Subprocess.cpp)
  target_compile_definitions(soak_live PRIVATE
    VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so"
    VRX_PROGRAM="$<TARGET_FILE:vrx>")
  target_link_libraries(soak_live PRIVATE PkgConfig::JACK vrx_build_options Threads::Threads)
  add_dependencies(soak_live VRX_talker_norvo vrx)
endif()
