# What `cmake --install` puts under its prefix. Nothing that is installed holds the prefix, so that --prefix may
# name another one than the build was configured for.
#
# Components: runtime, development, tools, lv2, licence.

include(CMakePackageConfigHelpers)

set_target_properties(VRX_talker_norvo PROPERTIES EXPORT_NAME talker_norvo)
install(TARGETS VRX_talker_norvo EXPORT VRX_talker_norvo
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/VRX_talker_norvo.so
  DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)

set(VRX_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/VRX_talker_norvo)
install(FILES talker/CVRXTalker.h DESTINATION ${VRX_INSTALL_HEADERS}/talker COMPONENT development)
install(FILES tcpio/CTcpIOTalk.h DESTINATION ${VRX_INSTALL_HEADERS}/tcpio COMPONENT development)
install(DIRECTORY base DESTINATION ${VRX_INSTALL_HEADERS} COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE)

set(VRX_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/VRX_talker_norvo)
install(EXPORT VRX_talker_norvo NAMESPACE VRX:: FILE VRX_talker_norvoConfig.cmake
  DESTINATION ${VRX_INSTALL_CMAKE} COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VRX_talker_norvoConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VRX_talker_norvoConfigVersion.cmake
  DESTINATION ${VRX_INSTALL_CMAKE} COMPONENT development)

file(RELATIVE_PATH VRX_PREFIX_FROM_PKGCONFIG
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/VRX_talker_norvo.pc.in ${PROJECT_BINARY_DIR}/VRX_talker_norvo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/VRX_talker_norvo.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(TARGET vrx)
  install(TARGETS vrx DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES docs/man/vrx.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES completions/vrx
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  # The units name /usr/bin/vrx.
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    install(FILES packaging/systemd/vrx-serve.service packaging/systemd/vrx-serve@.service
      DESTINATION lib/systemd/system COMPONENT tools)
  endif()
endif()

if(TARGET vrx_lv2_plugin)
  install(TARGETS vrx_lv2_plugin LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vrx-lv2 COMPONENT lv2)
endif()

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/licenses/VRX_talker_norvo COMPONENT licence)
