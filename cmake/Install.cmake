# The installed tree: programs, libraries, headers under include/tarnlet, chip profiles, the CMake
# package Tarnlet and pkg-config files. Nothing in it names the place it was installed to.

include(CMakePackageConfigHelpers)

set(headerDir ${CMAKE_INSTALL_INCLUDEDIR}/tarnlet)
set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/Tarnlet)

install(TARGETS tarnlet)
install(TARGETS tarnlet_library Xdk tarnlet_agent
  EXPORT TarnletTargets
  FILE_SET HEADERS DESTINATION ${headerDir}
  INCLUDES DESTINATION ${headerDir}
)
install(DIRECTORY profiles/ DESTINATION ${CMAKE_INSTALL_DATADIR}/tarnlet/profiles
  FILES_MATCHING PATTERN *.json)
install(FILES LICENSE README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/tarnlet)

install(EXPORT TarnletTargets NAMESPACE Tarnlet:: DESTINATION ${packageDir})
configure_package_config_file(cmake/TarnletConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TarnletConfig.cmake INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TarnletConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/TarnletConfig.cmake
  ${PROJECT_BINARY_DIR}/TarnletConfigVersion.cmake
  DESTINATION ${packageDir})

file(RELATIVE_PATH pkgconfigToPrefix
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pkgconfigToPrefix ${pkgconfigToPrefix})
foreach(package tarnlet tarnlet-agent)
  configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
