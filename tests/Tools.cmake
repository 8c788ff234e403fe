# Tests of the vrx program: its parts as units, and the built program started from outside.
if(NOT TARGET vrx)
  return()
endif()

add_executable(tool_tests
  support/RawClient.cpp
  support/ScriptedServer.cpp
  support/Subprocess.cpp
  support/Subprocess_test.cpp
  tools/program/Errors_test.cpp
  tools/program/SameFile_test.cpp
  tools/report/BlockCsv_test.cpp
  tools/audio/AudioFile_test.cpp
  tools/audio/FilePump_test.cpp
  tools/audio/WaveStream_test.cpp
  tools/checks/RawConnection_test.cpp
  host/InstalledFile_test.cpp
  lv2/settings/BundleSettings_test.cpp
  tools/bundles/BundleFolder_test.cpp
  tools/bundles/BundleTurtle_test.cpp
  tools/commands/Compare_test.cpp
  tools/report/Comparison_test.cpp
  tools/commands/ConnectionOptions_test.cpp
  tools/commands/Doctor_test.cpp
  tools/report/Envelope_test.cpp
  examples/Examples_test.cpp
  tools/report/HtmlReport_test.cpp
  host/BlockPump_test.cpp
  host/BlockSize_test.cpp
  host/Pacing_test.cpp
  tools/commands/Lv2_test.cpp
  tools/commands/Pins_test.cpp
  tools/commands/Pump_test.cpp
  host/RunStatistics_test.cpp
  host/Samples_test.cpp
  host/ServerSettings_test.cpp
  host/Session_test.cpp
  tools/wire/Requests_test.cpp
  tools/wire/WireTap_test.cpp
  tools/commands/Send_test.cpp
  tools/report/Svg_test.cpp
  tools/report/SweepResult_test.cpp
  tools/commands/Sweep_test.cpp
)
target_compile_definitions(tool_tests PRIVATE
  VRX_COMPARE_GAIN="$<TARGET_FILE:compare_gain>"
  VRX_MINIMAL_HOST="$<TARGET_FILE:minimal_host>"
  VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so"
  VRX_PROGRAM="$<TARGET_FILE:vrx>")
target_link_libraries(tool_tests PRIVATE vrx_commands vrx_build_options GTest::gtest_main)
add_dependencies(tool_tests compare_gain minimal_host vrx)
if(TARGET vrx_lv2_plugin)
  target_compile_definitions(tool_tests PRIVATE VRX_LV2_BINARY="$<TARGET_FILE:vrx_lv2_plugin>")
  add_dependencies(tool_tests vrx_lv2_plugin)
endif()
vrx_discover_tests(tool_tests)

# The checks, against a talker and a server of another make, which are right unless they are told otherwise.
add_library(other_plugin MODULE checks/wrong/plugin.cpp)
add_executable(other_server checks/wrong/server.cpp)
foreach(other other_plugin other_server)
  target_include_directories(${other} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${other} PRIVATE vrx_build_options Threads::Threads)
endforeach()
# Without such symbols it is really unloaded by dlclose.
target_compile_options(other_plugin PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
add_executable(check_tests
  support/RawClient.cpp
  support/ScriptedServer.cpp
  support/Subprocess.cpp
  tools/checks/CheckRunner_test.cpp
  tools/checks/Expect_test.cpp
  tools/checks/PluginChecks_test.cpp
  tools/checks/ServerChecks_test.cpp
  tools/checks/StubServer_test.cpp
  tools/commands/Check_test.cpp
)
target_include_directories(check_tests PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_definitions(check_tests PRIVATE
  VRX_OTHER_PLUGIN="$<TARGET_FILE:other_plugin>"
  VRX_OTHER_SERVER="$<TARGET_FILE:other_server>"
  VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so"
  VRX_PROGRAM="$<TARGET_FILE:vrx>")
target_link_libraries(check_tests PRIVATE vrx_checks vrx_build_options GTest::gtest_main)
add_dependencies(check_tests other_plugin other_server vrx)
vrx_discover_tests(check_tests PROPERTIES COST 50)

# The table in docs/checking.md; `script/check-matrix` makes it.
add_executable(check_matrix EXCLUDE_FROM_ALL checks/check_matrix.cpp support/Subprocess.cpp)
target_include_directories(check_matrix PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(check_matrix PRIVATE vrx_build_options vrx_report)
add_dependencies(check_matrix other_plugin other_server vrx)

# Blocks of more than one segment over a link that cuts them, where the machine allows one.
add_test(NAME whole_replies COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/tools/commands/WholeReplies_test.sh
  $<TARGET_FILE:vrx> $<TARGET_FILE:VRX_talker_norvo>)
set_tests_properties(whole_replies PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)

# The server: its room, what it knows of the wire, and the command.
add_executable(server_tests
  support/RawClient.cpp
  support/Subprocess.cpp
  tools/commands/Serve_test.cpp
  tools/server/AddressRange_test.cpp
  tools/server/BusyMeter_test.cpp
  tools/server/ClientSocket_test.cpp
  tools/server/Faults_test.cpp
  tools/server/Processing_test.cpp
  tools/server/ProcessorStock_test.cpp
  tools/server/TextCommands_test.cpp
  tools/server/Workers_test.cpp
  tools/wire/ServerProtocol_test.cpp
)
target_compile_definitions(server_tests PRIVATE
  VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so"
  VRX_PROGRAM="$<TARGET_FILE:vrx>")
target_include_directories(server_tests PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(server_tests PRIVATE vrx_server vrx_asio vrx_build_options GTest::gtest_main)
add_dependencies(server_tests vrx)
# LV2: a plug-in of our own that looks at its host, and others' plug-ins beside another host.
if(LILV_FOUND)
  set(VRX_TEST_LV2_PATH ${CMAKE_CURRENT_BINARY_DIR}/lv2)
  configure_file(tools/server/probe.lv2/manifest.ttl ${VRX_TEST_LV2_PATH}/probe.lv2/manifest.ttl COPYONLY)
  configure_file(tools/server/probe.lv2/probe.ttl ${VRX_TEST_LV2_PATH}/probe.lv2/probe.ttl COPYONLY)
  add_library(probe_plugin MODULE tools/server/probe.lv2/probe.cpp)
  target_link_libraries(probe_plugin PRIVATE PkgConfig::LILV vrx_build_options)
  set_target_properties(probe_plugin PROPERTIES
    PREFIX "" OUTPUT_NAME probe LIBRARY_OUTPUT_DIRECTORY ${VRX_TEST_LV2_PATH}/probe.lv2)
  target_sources(server_tests PRIVATE tools/server/Lv2Stage_test.cpp)
  target_compile_definitions(server_tests PRIVATE VRX_TEST_LV2_PATH="${VRX_TEST_LV2_PATH}")
  add_dependencies(server_tests probe_plugin)

endif()
vrx_discover_tests(server_tests)

# The recipes for networks, farms, monitors and services, with the real programs; skipped where one is missing.
# vrx_recipe(NAME SCRIPT [ARGUMENT...]): a test that runs SCRIPT with vrx, the plug-in and the arguments
function(vrx_recipe name script)
  add_test(NAME ${name} COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/${script}
    $<TARGET_FILE:vrx> ${PROJECT_BINARY_DIR}/VRX_talker_norvo.so ${ARGN})
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 180)
endfunction()
if(LILV_FOUND)
  vrx_recipe(lv2_plugins tools/server/lv2_plugins.sh)
endif()
vrx_recipe(network.tls network/tls.sh ${PROJECT_SOURCE_DIR}/docs/network.md)
vrx_recipe(network.ssh network/ssh.sh ${PROJECT_SOURCE_DIR}/docs/network.md)
vrx_recipe(network.farm network/farm.sh ${PROJECT_SOURCE_DIR}/docs/farm.md)
vrx_recipe(network.metrics network/metrics.sh ${PROJECT_SOURCE_DIR}/examples/vrx-metrics)
vrx_recipe(systemd_units packaging/systemd_units.sh ${PROJECT_SOURCE_DIR}/packaging/systemd)
vrx_recipe(systemd_run packaging/systemd_run.sh ${PROJECT_SOURCE_DIR}/packaging/systemd)

if(TARGET vrx_capture)
  add_executable(capture_tests
    support/RawClient.cpp
    support/ScriptedServer.cpp
    support/Subprocess.cpp
    tools/capture/Alignment_test.cpp
    tools/capture/CaptureReader_test.cpp
    tools/capture/CaptureWriter_test.cpp
    tools/capture/ExchangeAssembler_test.cpp
    tools/capture/ExchangeComparer_test.cpp
    tools/capture/FrameTracker_test.cpp
    tools/capture/SampleMute_test.cpp
    tools/capture/TapRecorder_test.cpp
    tools/commands/Diff_test.cpp
    tools/commands/Record_test.cpp
    tools/commands/Replay_test.cpp)
  target_compile_definitions(capture_tests PRIVATE
    VRX_PLUGIN="${PROJECT_BINARY_DIR}/VRX_talker_norvo.so"
    VRX_PROGRAM="$<TARGET_FILE:vrx>")
  target_link_libraries(capture_tests PRIVATE vrx_capture vrx_pcap vrx_build_options GTest::gtest_main)
  add_dependencies(capture_tests vrx VRX_talker_norvo)
  vrx_discover_tests(capture_tests)
endif()

# Not tests but runs of their own: see script/soak, script/fault-table and script/crowd.
foreach(run soak fault_table crowd)
  add_executable(${run} reliability/${run}.cpp support/Subprocess.cpp)
  target_include_directories(${run} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${run} PRIVATE vrx_build_options Threads::Threads ${CMAKE_DL_LIBS})
  add_dependencies(${run} VRX_talker_norvo vrx)
endforeach()
target_sources(soak PRIVATE support/ScriptedServer.cpp)
target_sources(crowd PRIVATE support/RawClient.cpp)
target_link_libraries(soak PRIVATE GTest::gtest)
