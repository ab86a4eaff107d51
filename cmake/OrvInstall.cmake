# Installs the libraries, the headers, a pkg-config file per library and a
# CMake package (find_package(orvutil) gives orvutil::orvutil and
# orvutil::orvplatform).
include(CMakePackageConfigHelpers)

install(TARGETS orvplatform orvutil EXPORT orvutilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(EXPORT orvutilTargets NAMESPACE orvutil:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvutil)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/orvutilConfig.cmake.in
  ${PROJECT_BINARY_DIR}/orvutilConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvutil)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/orvutilConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/orvutilConfig.cmake ${PROJECT_BINARY_DIR}/orvutilConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvutil)

# The .pc files find the prefix relative to themselves, so a copy installed
# with `cmake --install --prefix DIR` works wherever DIR is.
file(RELATIVE_PATH ORV_PC_PREFIX_REL /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
foreach(pc orvplatform orvutil)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
