# What `cmake --install` gives: headers, library, find_package(vekfind) and a pkg-config file. All of it
# can be moved together after the installation.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS vekfind EXPORT vekfindTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vekfind)
install(EXPORT vekfindTargets NAMESPACE vekfind:: FILE vekfindConfig.cmake
        DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vekfindConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vekfindConfigVersion.cmake DESTINATION ${package_dir})

# The folder of the .pc file tells where the prefix is.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VEKFIND_PC_TO_PREFIX /prefix/${pkgconfig_dir} /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/vekfind.pc.in ${PROJECT_BINARY_DIR}/vekfind.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vekfind.pc DESTINATION ${pkgconfig_dir})
