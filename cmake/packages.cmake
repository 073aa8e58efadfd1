# Debian packages, one for each component, made by CPack: see docs/packages.md. The rules here are
# apart from those of `cmake --install`: Debian's folder for libraries has the machine in its name.
set(debian_architectures x86_64-linux-gnu=amd64 arm-linux-gnueabihf=armhf)
set(machine ${CMAKE_LIBRARY_ARCHITECTURE})
if(NOT machine OR NOT VEKFIND_RELEASE_TIME
   OR NOT "${debian_architectures}" MATCHES "${machine}=([a-z0-9]+)")
    return()
endif()
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${CMAKE_MATCH_1})
set(libdir lib/${machine})
set(package_sources ${PROJECT_SOURCE_DIR}/cmake/packages)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vekfind)
set(CPACK_PACKAGE_CONTACT "libvekfind developers <vekfind@localhost.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE vekfind)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${VEKFIND_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# All files get the time of the release, so that the same sources give the same packages.
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/package_time.cmake)
file(WRITE ${CPACK_PROJECT_CONFIG_FILE} "set(ENV{SOURCE_DATE_EPOCH} ${VEKFIND_RELEASE_TIME})\n")

# What dpkg-shlibdeps would say, which cannot see the libraries of another machine: not older than
# those that this is built with.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dM -E -x c++ -include cstddef /dev/null
                OUTPUT_VARIABLE macros COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "__GLIBC_MINOR__ ([0-9]+)" found "${macros}")
set(needs_libc "libc6 (>= 2.${CMAKE_MATCH_1})")
string(REGEX MATCH "_GLIBCXX_RELEASE ([0-9]+)" found "${macros}")
set(needs_runtime "${needs_libc}, libgcc-s1 (>= 3.5), libstdc++6 (>= ${CMAKE_MATCH_1})")
set(debian_version ${PROJECT_VERSION}-${VEKFIND_DEBIAN_REVISION})
set(runtime_package libvekfind${PROJECT_VERSION_MAJOR})
set(needs_library "${runtime_package} (>= ${PROJECT_VERSION})")

# package_files(PACKAGE FOLDER FILE...): files of a package, in a folder below /usr.
function(package_files package folder)
    install(FILES ${ARGN} DESTINATION ${folder} COMPONENT ${package} EXCLUDE_FROM_ALL)
endfunction()

# debian_package(NAME SECTION DEPENDS DESCRIPTION [FILE...]): a component and its package. The first
# line of the description is the summary; the files go into its folder in /usr/share/doc.
macro(debian_package name section depends description)
    string(TOUPPER ${name} upper)
    list(APPEND CPACK_COMPONENTS_ALL ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "${description}")
    package_files(${name} share/doc/${name} ${package_sources}/copyright
                  ${VEKFIND_DEBIAN_CHANGELOG} ${ARGN})
endmacro()

# install_program(PACKAGE PROGRAM): the program, which finds the library without a path of its own,
# and its man page.
function(install_program package program)
    set(rule COMPONENT ${package} EXCLUDE_FROM_ALL)
    program_name(${program} name)
    install(TARGETS ${program} RUNTIME DESTINATION bin ${rule})
    install(CODE "file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin/${name}\")"
            ${rule})
    set(page ${VEKFIND_MAN_DIR}/${name}.1)
    install(CODE "
        execute_process(COMMAND gzip -9nc ${page} OUTPUT_FILE ${PROJECT_BINARY_DIR}/${name}.1.gz
                        COMMAND_ERROR_IS_FATAL ANY)" ${rule})
    package_files(${package} share/man/man1 ${PROJECT_BINARY_DIR}/${name}.1.gz)
endfunction()

set(in_short "exact one-to-many search over feature vectors")
string(CONCAT what_it_is
       "Feature vectors, of 32-bit floats or of 8-bit integers, are compared with all\n"
       "those that a group holds.")

install_library(${libdir} ${runtime_package} libvekfind-dev EXCLUDE_FROM_ALL)

debian_package(${runtime_package} libs "${needs_runtime}"
"${in_short}
Which stored faces, objects or pictures are most like this one? A program
inserts feature vectors, of 32-bit floats or of 8-bit integers, into a group
under 64-bit ids, and asks for the most similar ones above a threshold. Each
query is compared with each stored row: results are exact, the same bits every
time, and there is no index to train.

This package has the shared library. On 32-bit Arm it needs NEON.")
set(shlibs ${PROJECT_BINARY_DIR}/shlibs)
file(WRITE ${shlibs} "libvekfind ${PROJECT_VERSION_MAJOR} ${needs_library}\n")
string(TOUPPER ${runtime_package} upper)
set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${shlibs} ${package_sources}/libvekfind/triggers)

debian_package(libvekfind-dev libdevel "${runtime_package} (= ${debian_version})"
"${in_short} - development files
${what_it_is}

This package has the headers for C and for C++17, the files for pkg-config and
for CMake's find_package(vekfind), documentation and examples."
               ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md)
include(cmake/header_example.cmake)
header_example(${PROJECT_SOURCE_DIR}/include/vekfind/vekfind.h example)
file(WRITE ${PROJECT_BINARY_DIR}/example.c "${example}")
package_files(libvekfind-dev share/doc/libvekfind-dev/examples ${PROJECT_BINARY_DIR}/example.c
              ${PROJECT_SOURCE_DIR}/examples/search.cpp)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs
        DESTINATION share/doc/libvekfind-dev COMPONENT libvekfind-dev EXCLUDE_FROM_ALL)

debian_package(python3-vekfind python "python3:any, python3-numpy, ${needs_library}"
"${in_short} - Python package
${what_it_is}

This package has the Python module vekfind, with NumPy arrays over the C
interface of ${runtime_package}."
               ${PROJECT_SOURCE_DIR}/docs/python.md)
set(CPACK_DEBIAN_PYTHON3-VEKFIND_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON3-VEKFIND_PACKAGE_CONTROL_EXTRA
    ${package_sources}/python3-vekfind/postinst ${package_sources}/python3-vekfind/prerm)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/vekfind DESTINATION lib/python3/dist-packages
        COMPONENT python3-vekfind EXCLUDE_FROM_ALL PATTERN __pycache__ EXCLUDE)
# By this pip and importlib.metadata know of it.
set(metadata ${PROJECT_BINARY_DIR}/vekfind-${PROJECT_VERSION}.egg-info)
file(WRITE ${metadata} "Metadata-Version: 2.1\nName: vekfind\nVersion: ${PROJECT_VERSION}\n"
                       "Requires-Dist: numpy\n")
package_files(python3-vekfind lib/python3/dist-packages ${metadata})
package_files(python3-vekfind share/doc/python3-vekfind/examples
              ${PROJECT_SOURCE_DIR}/examples/search.py)

# The program for several machines is apart, so that the others do not need MPI.
set(programs ${VEKFIND_PROGRAMS})
list(REMOVE_ITEM programs vekfind_mpi)
if(programs)
    set(docs ${PROJECT_SOURCE_DIR}/docs)
    file(GLOB pages ${docs}/file-formats.md ${docs}/graph-file.md ${docs}/vekfind*.md)
    set(summaries " * vekgraph inspects, checks, draws and runs graph files")
    set(needs ${needs_runtime})
    if(TARGET vekfind_command)
        string(APPEND needs ", ${needs_library}")
        string(PREPEND summaries " * vekfind builds, searches, converts and calibrates groups\n")
    endif()
    debian_package(vekfind-tools utils "${needs}"
"${in_short} - programs
${what_it_is}

This package has the programs
${summaries}
and their manual pages."
                   ${PROJECT_SOURCE_DIR}/README.md ${pages})
    configure_file(${PROJECT_SOURCE_DIR}/tests/golden/graph/good-add.graph
                   ${PROJECT_BINARY_DIR}/add.graph COPYONLY)
    package_files(vekfind-tools share/doc/vekfind-tools/examples ${PROJECT_BINARY_DIR}/add.graph)
    foreach(program IN LISTS programs)
        install_program(vekfind-tools ${program})
    endforeach()
endif()
if(TARGET vekfind_mpi)
    debian_package(vekfind-mpi utils "${needs_library}"
"${in_short} - on several machines
${what_it_is}

This package has vekfind-mpi, which holds a part of the rows on each machine
and searches them together with MPI.")
    install_program(vekfind-mpi vekfind_mpi)
    set(CPACK_DEBIAN_VEKFIND-MPI_PACKAGE_RECOMMENDS openmpi-bin)
    set(CPACK_DEBIAN_VEKFIND-MPI_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
    set(CPACK_DEBIAN_VEKFIND-TOOLS_PACKAGE_SUGGESTS vekfind-mpi)
endif()

add_custom_target(package_contents DEPENDS vekfind ${VEKFIND_PROGRAMS})
if(TARGET man_pages)
    add_dependencies(package_contents man_pages)
endif()
include(CPack)
