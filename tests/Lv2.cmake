# Tests of the LV2 plug-in: its parts as units, and the binary in a strict host.
if(NOT (TARGET vrx_lv2_plugin AND TARGET vrx))
  return()
endif()

add_executable(lv2_tests
  lv2/HostFeatures_test.cpp
  lv2/Instance_test.cpp
  lv2/Library_test.cpp
  lv2/Measures_test.cpp
  lv2/StrictHost.cpp
  support/NoMemory.cpp
  support/ScriptedServer.cpp
  support/Subprocess.cpp
)
target_compile_definitions(lv2_tests PRIVATE
  VRX_LV2_BINARY="$<TARGET_FILE:vrx_lv2_plugin>"
  VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so"
  VRX_PROGRAM="$<TARGET_FILE:vrx>")
target_link_libraries(lv2_tests PRIVATE vrx_lv2 vrx_build_options GTest::gtest_main ${CMAKE_DL_LIBS})
add_dependencies(lv2_tests vrx_lv2_plugin vrx VRX_talker_norvo)
vrx_discover_tests(lv2_tests)

if(TARGET realtime_tests)
  target_sources(realtime_tests PRIVATE lv2/Instance_realtime_test.cpp)
  target_link_libraries(realtime_tests PRIVATE vrx_lv2)
endif()

if(VRX_SANITIZE) # a sanitizer's library has to be there before a host's first line
  return()
endif()

find_program(VALGRIND valgrind)
if(VALGRIND) # without the test that starts a program: valgrind lacks a system call of that
  add_test(NAME lv2.valgrind COMMAND ${VALGRIND} --quiet --leak-check=full --errors-for-leak-kinds=definite
    --show-leak-kinds=definite --error-exitcode=1 --fair-sched=yes
    $<TARGET_FILE:lv2_tests> --gtest_filter=Library*:Instance*:Host*:-*ThroughARecorder)
  set_tests_properties(lv2.valgrind PROPERTIES TIMEOUT 600 COST 100)
else()
  message(STATUS "valgrind not found (Debian: valgrind): the LV2 plug-in's test under it is skipped")
endif()

# The same binary in hosts that others wrote; each is skipped where it is not installed.
add_executable(run_times lv2/hosts/run_times.cpp lv2/StrictHost.cpp support/RealTimeCounts.cpp)
target_link_libraries(run_times PRIVATE vrx_lv2 vrx_build_options ${CMAKE_DL_LIBS})
foreach(host validate bench lv2apply ffmpeg gstreamer ecasound ardour jalv pipewire)
  add_test(NAME lv2.hosts.${host} COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/lv2/hosts/run $<TARGET_FILE:vrx> ${host})
  set_tests_properties(lv2.hosts.${host} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600 COST 100)
endforeach()
set_tests_properties(lv2.hosts.pipewire PROPERTIES RUN_SERIAL ON) # it leaves clients out when it is busy
