# Tests of the installed tree: what is in it, and that a stranger's project builds with it alone.
set(VRX_PREFIX ${CMAKE_CURRENT_BINARY_DIR}/prefix)
set(VRX_LIBRARY_FOLDER ${VRX_PREFIX}/${CMAKE_INSTALL_LIBDIR})

# What links a sanitized library has to be sanitized as well.
set(VRX_CONSUMER_FLAGS ${CMAKE_CXX_FLAGS})
if(VRX_SANITIZE)
  string(APPEND VRX_CONSUMER_FLAGS " -fsanitize=${VRX_SANITIZE}")
endif()

add_test(NAME install.clear COMMAND ${CMAKE_COMMAND} -E rm -rf ${VRX_PREFIX})
add_test(NAME install COMMAND ${CMAKE_COMMAND} --install ${PROJECT_BINARY_DIR} --prefix ${VRX_PREFIX})
set_tests_properties(install.clear PROPERTIES FIXTURES_SETUP cleared)
set_tests_properties(install PROPERTIES FIXTURES_REQUIRED cleared FIXTURES_SETUP installed)

set(VRX_INSTALL_TESTS install.tree install.cmake_consumer)
add_test(NAME install.tree COMMAND ${CMAKE_COMMAND}
  -DPREFIX=${VRX_PREFIX} -DLIBRARY_FOLDER=${VRX_LIBRARY_FOLDER} -DSOURCE=${PROJECT_SOURCE_DIR}
  -DVERSION=${PROJECT_VERSION} -DREADELF=${CMAKE_READELF} -DHAVE_VRX=$<TARGET_EXISTS:vrx> -DHAVE_LV2=$<TARGET_EXISTS:vrx_lv2_plugin>
  -P ${CMAKE_CURRENT_SOURCE_DIR}/library/CheckInstalledTree.cmake)

add_test(NAME install.cmake_consumer COMMAND ${CMAKE_CTEST_COMMAND}
  --build-and-test ${PROJECT_SOURCE_DIR}/examples ${CMAKE_CURRENT_BINARY_DIR}/cmake_consumer
  --build-generator ${CMAKE_GENERATOR} --build-makeprogram ${CMAKE_MAKE_PROGRAM}
  --build-options -DCMAKE_PREFIX_PATH=${VRX_PREFIX} -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
                  -DCMAKE_CXX_FLAGS=${VRX_CONSUMER_FLAGS} -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}
  --test-command ${CMAKE_CTEST_COMMAND} --output-on-failure --no-tests=error)

# Hosts are built by other compilers than this one.
set(VRX_HEADER_COMPILERS ${CMAKE_CXX_COMPILER})
foreach(name g++ clang++)
  find_program(VRX_HEADERS_${name} ${name})
  if(NOT VRX_HEADERS_${name})
    message(STATUS "${name} not found (Debian: g++, clang): the test that compiles the headers does without it")
  else()
    list(APPEND VRX_HEADER_COMPILERS ${VRX_HEADERS_${name}})
  endif()
endforeach()
list(REMOVE_DUPLICATES VRX_HEADER_COMPILERS)
list(APPEND VRX_INSTALL_TESTS install.headers)
add_test(NAME install.headers COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/library/check_headers.sh
  ${VRX_PREFIX}/${CMAKE_INSTALL_INCLUDEDIR}/VRX_talker_norvo ${VRX_HEADER_COMPILERS})

find_program(VRX_PKG_CONFIG NAMES pkg-config pkgconf)
if(VRX_PKG_CONFIG AND VRX_SANITIZE)
  message(STATUS "A sanitized library does not link with plain flags: the test that builds with pkg-config is skipped")
elseif(VRX_PKG_CONFIG)
  list(APPEND VRX_INSTALL_TESTS install.pkgconfig_consumer)
  add_test(NAME install.pkgconfig_consumer COMMAND
    ${CMAKE_CURRENT_SOURCE_DIR}/library/pkgconfig_consumer.sh ${PROJECT_SOURCE_DIR}/examples ${VRX_LIBRARY_FOLDER}
    ${CMAKE_CURRENT_BINARY_DIR}/pkgconfig_consumer ${CMAKE_CXX_COMPILER} ${VRX_CONSUMER_FLAGS})
  set_tests_properties(install.pkgconfig_consumer PROPERTIES ENVIRONMENT PKG_CONFIG=${VRX_PKG_CONFIG})
else()
  message(STATUS "pkg-config not found (Debian: pkg-config): the test that builds with it is skipped")
endif()
set_tests_properties(${VRX_INSTALL_TESTS} PROPERTIES FIXTURES_REQUIRED installed)

# Released binaries are hardened; the other build types are for development.
if(CMAKE_BUILD_TYPE MATCHES "^Rel" AND NOT VRX_CONSUMER_FLAGS MATCHES "-fsanitize")
  add_test(NAME hardening COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/library/check_hardening.sh ${CMAKE_READELF}
    $<TARGET_FILE:VRX_talker_norvo> $<$<TARGET_EXISTS:vrx>:$<TARGET_FILE:vrx>>
    $<$<TARGET_EXISTS:vrx_lv2_plugin>:$<TARGET_FILE:vrx_lv2_plugin>>
    COMMAND_EXPAND_LISTS)
endif()

if(TARGET vrx)
  find_program(VRX_BASH bash)
  if(VRX_BASH)
    add_test(NAME documented_options COMMAND ${VRX_BASH}
      ${CMAKE_CURRENT_SOURCE_DIR}/tools/documented_options.sh
      $<TARGET_FILE:vrx> ${PROJECT_SOURCE_DIR}/docs/man/vrx.1 ${PROJECT_SOURCE_DIR}/completions/vrx)
  endif()
endif()
