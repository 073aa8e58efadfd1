# Texts that are made from others: Debian's changelog from CHANGELOG.md, man pages from the
# programs' help. Without Python there are none, and no packages.
set(VEKFIND_PROGRAMS)  # what is installed and packaged, of what the build makes
foreach(program vekgraph vekfind_command vekfind_mpi)
    if(TARGET ${program})
        list(APPEND VEKFIND_PROGRAMS ${program})
    endif()
endforeach()

# The name by which a program is run.
function(program_name program result)
    get_target_property(name ${program} OUTPUT_NAME)
    if(NOT name)
        set(name ${program})
    endif()
    set(${result} ${name} PARENT_SCOPE)
endfunction()

set(VEKFIND_MAN_DIR ${PROJECT_BINARY_DIR}/man)
set(VEKFIND_DEBIAN_CHANGELOG ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
set(VEKFIND_DEBIAN_REVISION 1)
set(text_scripts ${PROJECT_SOURCE_DIR}/cmake/packages)

find_package(Python3 COMPONENTS Interpreter)
if(NOT Python3_FOUND)
    return()
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${text_scripts}/debian_changelog.py)
execute_process(COMMAND ${Python3_EXECUTABLE} ${text_scripts}/debian_changelog.py
                        ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${VEKFIND_DEBIAN_CHANGELOG}
                        ${VEKFIND_DEBIAN_REVISION}
                COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE VEKFIND_RELEASE_TIME)

# A program for another machine cannot be asked here: the pages of this machine's own build serve.
if(CMAKE_CROSSCOMPILING)
    set(VEKFIND_MAN_DIR ${PROJECT_SOURCE_DIR}/build/release/man)
    return()
endif()
# Nor a sanitized one, which ends badly where MPI leaks; nobody installs those.
find_program(HELP2MAN_EXECUTABLE help2man)
if(NOT HELP2MAN_EXECUTABLE OR VEKFIND_SANITIZE)
    return()
endif()
set(pages)
foreach(program IN LISTS VEKFIND_PROGRAMS)
    program_name(${program} name)
    set(page ${VEKFIND_MAN_DIR}/${name}.1)
    add_custom_command(OUTPUT ${page}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${VEKFIND_MAN_DIR}
        COMMAND ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=${VEKFIND_RELEASE_TIME}
                ${Python3_EXECUTABLE} ${text_scripts}/man_page.py ${HELP2MAN_EXECUTABLE}
                $<TARGET_FILE:${program}> ${PROJECT_VERSION} ${page}
        DEPENDS ${program} ${text_scripts}/man_page.py VERBATIM)
    list(APPEND pages ${page})
endforeach()
add_custom_target(man_pages ALL DEPENDS ${pages})
# Whoever built the library alone installs it alone.
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 OPTIONAL)
