# Runs on each package's staged files: adds Debian's own documents, compresses what Debian wants compressed, and
# gives every file the time of SOURCE_DATE_EPOCH, so that one commit always makes the same bytes.
get_filename_component(packaging ${CMAKE_CURRENT_LIST_DIR} ABSOLUTE)

function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(usr ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr)
  set(documents ${usr}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  file(COPY ${packaging}/copyright DESTINATION ${documents})
  configure_file(${packaging}/changelog ${documents}/changelog.Debian COPYONLY)
  file(GLOB pages ${usr}/share/man/man*/*)
  run(gzip -9n ${documents}/changelog.Debian ${pages})
endforeach()

run(chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY})
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  run(find ${CPACK_TEMPORARY_DIRECTORY} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +)
endif()
