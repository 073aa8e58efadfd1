# What `cmake --install` gives: headers, library, find_package(vekfind) and a pkg-config file. All
# of it can be moved together after the installation.
include(CMakePackageConfigHelpers)

write_basic_package_version_file(${PROJECT_BINARY_DIR}/vekfindConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)

# install_library(LIBDIR RUNTIME DEVELOPMENT [EXCLUDE_FROM_ALL]): the rules of two components, the
# library that programs run with and all that building them takes.
function(install_library libdir runtime development)
    set(rest COMPONENT ${development} ${ARGN})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${rest})
    install(TARGETS vekfind EXPORT vekfind-${development}
            LIBRARY DESTINATION ${libdir} COMPONENT ${runtime} NAMELINK_COMPONENT ${development}
                    ${ARGN})
    install(EXPORT vekfind-${development} NAMESPACE vekfind:: FILE vekfindConfig.cmake
            DESTINATION ${libdir}/cmake/vekfind ${rest})
    install(FILES ${PROJECT_BINARY_DIR}/vekfindConfigVersion.cmake
            DESTINATION ${libdir}/cmake/vekfind ${rest})

    # The folder of the .pc file tells where the prefix is.
    file(RELATIVE_PATH VEKFIND_PC_TO_PREFIX /prefix/${libdir}/pkgconfig /prefix)
    set(VEKFIND_PC_LIBDIR ${libdir})
    set(pc_file ${PROJECT_BINARY_DIR}/${development}/vekfind.pc)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/vekfind.pc.in ${pc_file} @ONLY)
    install(FILES ${pc_file} DESTINATION ${libdir}/pkgconfig ${rest})
endfunction()

install_library(${CMAKE_INSTALL_LIBDIR} library development)
