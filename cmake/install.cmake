# SPDX-License-Identifier: Apache-2.0
include(CMakePackageConfigHelpers)

install(TARGETS ipg EXPORT ipgTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(dir dcm mth ipg)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h"
    PATTERN "internal" EXCLUDE) # the operators' own helpers are not part of the interface
endforeach()

install(EXPORT ipgTargets NAMESPACE ipg:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ipg)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ipgConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ipgConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ipg)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ipgConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ipgConfig.cmake ${PROJECT_BINARY_DIR}/ipgConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ipg)

configure_file(${PROJECT_SOURCE_DIR}/cmake/ipg.pc.in ${PROJECT_BINARY_DIR}/ipg.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ipg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
