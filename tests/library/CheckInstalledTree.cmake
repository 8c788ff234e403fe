# Compares the installed files with what a consumer relies on.
function(expect_equal what actual expected)
  if(NOT actual STREQUAL expected)
    message(SEND_ERROR "${what}: '${actual}' instead of '${expected}'")
  endif()
endfunction()

string(REGEX MATCH "^[0-9]+" major ${VERSION})
set(name libVRX_talker_norvo.so)
file(GLOB libraries RELATIVE ${LIBRARY_FOLDER} ${LIBRARY_FOLDER}/*.so*)
expect_equal("libraries" "${libraries}" "VRX_talker_norvo.so;${name};${name}.${major};${name}.${VERSION}")

foreach(link VRX_talker_norvo.so=${name}.${major} ${name}=${name}.${major} ${name}.${major}=${name}.${VERSION})
  string(REGEX MATCH "(.+)=(.+)" link ${link})
  file(READ_SYMLINK ${LIBRARY_FOLDER}/${CMAKE_MATCH_1} target)
  expect_equal("link ${CMAKE_MATCH_1}" "${target}" ${CMAKE_MATCH_2})
endforeach()

execute_process(COMMAND ${READELF} --dynamic --wide ${LIBRARY_FOLDER}/${name}
  OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "SONAME[^[]*\\[([^]]*)" soname "${dynamic}")
expect_equal("SONAME" "${CMAKE_MATCH_1}" ${name}.${major})
string(REGEX MATCH "(RPATH|RUNPATH)[^\n]*" searched "${dynamic}")
expect_equal("search path in the library" "${searched}" "")

file(GLOB toolkit RELATIVE ${SOURCE} ${SOURCE}/base/*.h)
file(GLOB_RECURSE headers RELATIVE ${PREFIX}/include/VRX_talker_norvo ${PREFIX}/include/*)
expect_equal("headers" "${headers}" "${toolkit};talker/CVRXTalker.h;tcpio/CTcpIOTalk.h")

set(files cmake/VRX_talker_norvo/VRX_talker_norvoConfig.cmake
          cmake/VRX_talker_norvo/VRX_talker_norvoConfigVersion.cmake pkgconfig/VRX_talker_norvo.pc)
list(TRANSFORM files PREPEND ${LIBRARY_FOLDER}/)
list(APPEND files ${PREFIX}/share/licenses/VRX_talker_norvo/LICENSE)
if(HAVE_VRX)
  list(APPEND files ${PREFIX}/bin/vrx ${PREFIX}/share/man/man1/vrx.1
                    ${PREFIX}/share/bash-completion/completions/vrx)
endif()
if(HAVE_LV2)
  list(APPEND files ${LIBRARY_FOLDER}/vrx-lv2/vrx_lv2.so)
endif()
foreach(file ${files})
  if(NOT EXISTS ${file})
    message(SEND_ERROR "${file} is missing")
  endif()
endforeach()

# Nothing in the tree may be bound to the place where it was first put.
file(GLOB_RECURSE texts ${LIBRARY_FOLDER}/cmake/*.cmake ${LIBRARY_FOLDER}/pkgconfig/*.pc)
foreach(text ${texts})
  file(READ ${text} content)
  string(FIND "${content}" "${PREFIX}" position)
  expect_equal("place of the prefix in ${text}" ${position} -1)
endforeach()

if(HAVE_VRX)
  execute_process(COMMAND ${PREFIX}/bin/vrx --help RESULT_VARIABLE result OUTPUT_QUIET)
  expect_equal("exit code of the installed vrx --help" "${result}" 0)
endif()

# The installed program finds the installed talker and the installed plug-in.
if(HAVE_VRX AND HAVE_LV2)
  set(bundles ${CMAKE_CURRENT_BINARY_DIR}/installed_lv2)
  execute_process(COMMAND ${PREFIX}/bin/vrx lv2 add installed --servport 7000 --dir ${bundles} --force
    OUTPUT_VARIABLE uri RESULT_VARIABLE result)
  expect_equal("exit code of the installed vrx lv2 add" "${result}" 0)
  expect_equal("URI" "${uri}" "urn:vrx:talker:installed\n")
  file(READ_SYMLINK ${bundles}/vrx-installed.lv2/vrx_lv2.so target)
  expect_equal("the bundle's binary" "${target}" ${LIBRARY_FOLDER}/vrx-lv2/vrx_lv2.so)
  file(STRINGS ${bundles}/vrx-installed.lv2/settings.txt talker REGEX "^talker=")
  expect_equal("the bundle's talker" "${talker}" talker=${LIBRARY_FOLDER}/VRX_talker_norvo.so)
endif()
