# Installs the library like a system library: versioned soname, the one
# public header, a CMake package (ondrel::ondrel) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS ondrel EXPORT ondrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ondrel
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ondrel
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT ondrel)

install(EXPORT ondrelTargets
  FILE ondrelTargets.cmake
  NAMESPACE ondrel::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ondrel
  COMPONENT ondrel)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/ondrelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ondrelConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ondrel)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/ondrelConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/ondrelConfig.cmake
  ${PROJECT_BINARY_DIR}/ondrelConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ondrel
  COMPONENT ondrel)

# The .pc file finds its prefix relative to itself, so the package can be
# installed under any prefix.
file(RELATIVE_PATH ONDREL_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" ONDREL_PC_TO_PREFIX "${ONDREL_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/ondrel.pc.in
  ${PROJECT_BINARY_DIR}/ondrel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ondrel.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT ondrel)
