# Debian packages of the installed components; script/package makes them.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package brings its own as its first line
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET vrx)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(TARGET vrx_lv2_plugin)
  list(APPEND CPACK_COMPONENTS_ALL lv2)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/finish_tree.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE vrx-talker-norvo)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "VRX_talker_norvo authors <vrx-talker-norvo@packages.invalid>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvrx-talker-norvo${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The trigger runs ldconfig. The two scripts are named and do not exist: that keeps CPack from adding its own,
# which would run ldconfig once more.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/triggers
  ${PROJECT_SOURCE_DIR}/packaging/no/postinst
  ${PROJECT_SOURCE_DIR}/packaging/no/postrm)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "runs blocks of audio through a remote processing server
A plug-in that a host loads at run time: it sends each block of sample words
to a server over one TCP connection and hands back the processed block.
.
The library also exports the toolkit of its authors: a TCP client, stream and
WAV files, lists of strings with profile and CSV operations, text encodings
and macro expansion.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvrx-talker-norvo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "runs blocks of audio through a remote processing server (headers)
The headers of the talker's interface and of its authors' toolkit, with the
files by which CMake and pkg-config find the library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vrx-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "run audio files through a remote processing server
The program vrx drives the talker plug-in from the command line: it pumps
audio files, shows the server's pins, sends text commands and brings a
loopback server to try them with.")

set(CPACK_DEBIAN_LV2_PACKAGE_NAME vrx-lv2)
set(CPACK_DEBIAN_LV2_PACKAGE_SECTION sound)
set(CPACK_COMPONENT_LV2_DEPENDS runtime)
set(CPACK_DEBIAN_LV2_PACKAGE_RECOMMENDS vrx-tools)
set(CPACK_DEBIAN_LV2_DESCRIPTION "run audio through a remote processing server (LV2 plug-in)
The plug-in by which a digital audio workstation, or any other LV2 host, runs
its audio through a remote processing server. The command \"vrx lv2 add\" of
vrx-tools makes one for each server.")

include(CPack)
