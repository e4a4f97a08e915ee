# The room set of the headphone effect: three folders of response files
# built at build time from a measured HRTF (the MIT KEMAR set that Debian's
# libmysofa1 ships), by tools/rooms/make_rooms.cpp. They land in
# <build>/share/ondrel/rooms and are installed to share/ondrel/rooms, where
# the tool finds them. Without libmysofa or the SOFA file the library still
# builds; the headphone effect is then silent in the tool.
pkg_check_modules(ONDREL_MYSOFA IMPORTED_TARGET libmysofa)
set(ONDREL_HRTF_SOFA /usr/share/libmysofa/default.sofa CACHE FILEPATH
    "Measured HRTF (SOFA) from which the headphone rooms are built")
set(ONDREL_ROOMS_DIR ${PROJECT_BINARY_DIR}/share/ondrel/rooms)

if(ONDREL_MYSOFA_FOUND AND EXISTS ${ONDREL_HRTF_SOFA})
  add_executable(ondrel_make_rooms ${PROJECT_SOURCE_DIR}/tools/rooms/make_rooms.cpp)
  target_compile_options(ondrel_make_rooms PRIVATE ${ONDREL_WARNINGS})
  target_link_libraries(ondrel_make_rooms PRIVATE PkgConfig::ONDREL_MYSOFA)

  set(room_files)
  foreach(room ReferenceRoom LiveRoom MovieTheater)
    foreach(name 0L 1L 2L 3L 4L 5L 0R 1R 2R 3R 4R 5R FL_L FL_R FC_L FC_R FR_L FR_R BL_L BL_R
                 BR_L BR_R)
      list(APPEND room_files ${ONDREL_ROOMS_DIR}/${room}/${name}.data)
    endforeach()
  endforeach()
  add_custom_command(OUTPUT ${room_files}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${ONDREL_ROOMS_DIR}
    COMMAND ondrel_make_rooms ${ONDREL_HRTF_SOFA} ${ONDREL_ROOMS_DIR}
    DEPENDS ondrel_make_rooms ${ONDREL_HRTF_SOFA}
    COMMENT "Building the headphone rooms from ${ONDREL_HRTF_SOFA}")
  add_custom_target(ondrel_rooms ALL DEPENDS ${room_files})
  install(DIRECTORY ${ONDREL_ROOMS_DIR}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/ondrel/rooms)
  if(TARGET ondrel_tool)
    add_dependencies(ondrel_tool ondrel_rooms)
  endif()
else()
  message(WARNING "libmysofa or ${ONDREL_HRTF_SOFA} not found: no headphone rooms are built")
endif()

# The tool looks here when no installed set sits beside its binary.
if(TARGET ondrel_tool)
  target_compile_definitions(ondrel_tool PRIVATE ONDREL_BUILD_ROOMS_DIR="${ONDREL_ROOMS_DIR}")
endif()
