# Installs into an empty folder, then builds and runs the header's own example and that in C++ from
# there, once by find_package and once by pkg-config. Arguments: BUILD_DIR, WORK_DIR, SOURCE_DIR (of
# this file), README, CXX_EXAMPLE, GENERATOR, C_COMPILER, C_FLAGS, CXX_COMPILER, CXX_FLAGS,
# TOOLCHAIN_FILE, EMULATOR, PKG_CONFIG, VERSION, LIBDIR. The toolchain and the emulator are empty when
# nothing is crossed.
cmake_minimum_required(VERSION 3.22)
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/header_example.cmake)
set(example_prints "id 8, similarity 0.953\n")
string(CONCAT search_prints "id 8, similarity 0.953; id 9, similarity 0.500\n"
              "id 9, similarity 0.500\n" "VEK_DUPLICATED_ID: insert\n")

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGV}\n${result}\n${out}")
    endif()
    set(out "${out}" PARENT_SCOPE)
endfunction()

function(run_example way name)
    run(${ARGN})
    if(NOT out STREQUAL ${name}_prints)
        message(FATAL_ERROR "${way}: ${name} prints '${out}'")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/moved)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/installed)
file(RENAME ${WORK_DIR}/installed ${prefix})

header_example(${prefix}/include/vekfind/vekfind.h example)
file(WRITE ${WORK_DIR}/consumer/example.c "${example}")
file(READ ${README} readme)
string(FIND "${readme}" "${example}" place)
if(place EQUAL -1)
    message(FATAL_ERROR "README.md shows another example than the header:\n${example}")
endif()
file(COPY ${SOURCE_DIR}/consumer/CMakeLists.txt ${CXX_EXAMPLE} DESTINATION ${WORK_DIR}/consumer)

run(${CMAKE_COMMAND} -S ${WORK_DIR}/consumer -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE}
    -DCMAKE_C_COMPILER=${C_COMPILER} "-DCMAKE_C_FLAGS=${C_FLAGS}"
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
foreach(name example search)
    run_example(find_package ${name} ${EMULATOR} ${WORK_DIR}/build/${name})
endforeach()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(${PKG_CONFIG} --modversion vekfind)
if(NOT out STREQUAL "${VERSION}\n")
    message(FATAL_ERROR "pkg-config names version ${out}")
endif()
run(${PKG_CONFIG} --cflags --libs vekfind)
separate_arguments(c_flags UNIX_COMMAND "${C_FLAGS} ${out}")
separate_arguments(cxx_flags UNIX_COMMAND "${CXX_FLAGS} ${out}")
run(${C_COMPILER} -std=c99 ${WORK_DIR}/consumer/example.c -o ${WORK_DIR}/example ${c_flags})
run(${CXX_COMPILER} -std=c++17 ${CXX_EXAMPLE} -o ${WORK_DIR}/search ${cxx_flags})
foreach(name example search)
    run_example(pkg-config ${name} ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR}
                ${EMULATOR} ${WORK_DIR}/${name})
endforeach()
