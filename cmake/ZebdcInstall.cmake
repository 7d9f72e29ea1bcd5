# Installation: libraries, headers, a relocatable CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS zebdct7 zebdct7_static zebcore zebcore_static EXPORT zebDCTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/zebdc DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT zebDCTargets NAMESPACE zebDC::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zebDC)
configure_package_config_file(cmake/zebDCConfig.cmake.in
  ${PROJECT_BINARY_DIR}/zebDCConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zebDC)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zebDCConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zebDCConfig.cmake
              ${PROJECT_BINARY_DIR}/zebDCConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zebDC)
# The description finds its prefix from its own place.
file(RELATIVE_PATH pkgconfig_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/zebdc.pc.in ${PROJECT_BINARY_DIR}/zebdc.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zebdc.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
