# Rooms: folders that are libraries. A room's sources see their own folder and those of the rooms they link, and
# nothing else: the include path holds no source folder, only a view of each room, a link to it under its own name.

# Adds <build>/rooms/<view>/<folder> as a link to <folder>, for an include path that shows that folder alone.
function(vrx_view view folder)
  cmake_path(GET folder PARENT_PATH parent)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/rooms/${view}/${parent})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${PROJECT_BINARY_DIR}/rooms/${view}/${folder} SYMBOLIC)
endfunction()

# vrx_room(NAME FOLDER SOURCES file... [LINKS library...] [PRIVATE library...])
#
# Adds the library vrx_<NAME> of the sources in FOLDER. LINKS are the rooms below it and what its headers need,
# PRIVATE is what only its sources need.
function(vrx_room name folder)
  cmake_parse_arguments(PARSE_ARGV 2 ROOM "" "" "SOURCES;LINKS;PRIVATE")
  vrx_view(${name} ${folder})
  list(TRANSFORM ROOM_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/${folder}/)
  add_library(vrx_${name} STATIC ${ROOM_SOURCES})
  target_include_directories(vrx_${name} PUBLIC ${PROJECT_BINARY_DIR}/rooms/${name})
  target_link_libraries(vrx_${name} PUBLIC ${ROOM_LINKS} PRIVATE ${ROOM_PRIVATE} vrx_build_options)
  set_target_properties(vrx_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()
