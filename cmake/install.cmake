# Installation: the plug-in and host libraries with the platform headers, a
# pkg-config file and a CMake package; the tools, YANG modules and examples
# (installed by their directories); a Debian package through CPack.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ocni
        FILES_MATCHING PATTERN "*.h")
set_target_properties(ocni_platform PROPERTIES EXPORT_NAME platform)
set_target_properties(ocni_host PROPERTIES EXPORT_NAME host)
set_target_properties(ocni_localrouting PROPERTIES EXPORT_NAME localrouting)
install(TARGETS ocni_platform ocni_host ocni_localrouting EXPORT ocniTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ocni)
install(EXPORT ocniTargets NAMESPACE ocni:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ocni)

set(OCNI_YANG_INSTALL_DIR ${CMAKE_INSTALL_DATADIR}/ocni/yang)
set(OCNI_PLUGIN_INSTALL_PATH ${CMAKE_INSTALL_LIBDIR}/libocni_localrouting.so)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ocniConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ocniConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ocni
  PATH_VARS OCNI_YANG_INSTALL_DIR OCNI_PLUGIN_INSTALL_PATH)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ocniConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ocniConfig.cmake ${PROJECT_BINARY_DIR}/ocniConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ocni)
configure_file(${PROJECT_SOURCE_DIR}/cmake/ocni.pc.in ${PROJECT_BINARY_DIR}/ocni.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ocni.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
        USE_SOURCE_PERMISSIONS)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_PACKAGE_NAME ocni)
set(CPACK_PACKAGE_VENDOR "ocni developers")
set(CPACK_PACKAGE_CONTACT "ocni developers <ocni@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "OpenConfig static routes kept in a router's native model: ocni-map, ocni-netconfd")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
# The Debian packages whose libraries the tools load, and the IETF NETCONF modules the server reads.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libc6, libstdc++6, libyang2 (>= 2.1), liblmdb0, libsafec3, libnetconf2-2, libssh-4, libcrypt1, libyuma-base")
include(CPack)
