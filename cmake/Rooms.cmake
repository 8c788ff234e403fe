# Rooms: folders that are libraries. A room's sources see their own folder and those of the rooms they link, and
# nothing else: the include path holds no source folder, only a view of each room, a link to it under its own name.

# Adds <build>/rooms/<view>/<folder> as a link to <folder>, for an include path that shows that folder alone.
function(vrx_view view folder)
  cmake_path(GET folder PARENT_PATH parent)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/rooms/${view}/${parent})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${PROJECT_BINARY_DIR}/rooms/${view}/${folder} SYMBOLIC)
endfunction()

option(VRX_BATCHES "Compile rooms whose sources include heavy headers several sources at a time" ON)

# vrx_room(NAME FOLDER [BATCH n] SOURCES file... [LINKS library...] [PRIVATE library...])
#
# Adds the library vrx_<NAME> of the sources in FOLDER. LINKS are the rooms below it and what its headers need,
# PRIVATE is what only its sources need. BATCH sources are compiled at a time, which saves most of the time
# where each includes the command line's or the network's header; names in anonymous namespaces must differ then.
function(vrx_room name folder)
  cmake_parse_arguments(PARSE_ARGV 2 ROOM "" "BATCH" "SOURCES;LINKS;PRIVATE")
  vrx_view(${name} ${folder})
  list(TRANSFORM ROOM_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/${folder}/)
  add_library(vrx_${name} STATIC ${ROOM_SOURCES})
  target_include_directories(vrx_${name} PUBLIC ${PROJECT_BINARY_DIR}/rooms/${name})
  target_link_libraries(vrx_${name} PUBLIC ${ROOM_LINKS} PRIVATE ${ROOM_PRIVATE} vrx_build_options)
  set_target_properties(vrx_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  if(ROOM_BATCH AND VRX_BATCHES)
    set_target_properties(vrx_${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${ROOM_BATCH})
  endif()
endfunction()
