# What the Python reader makes of a file that the library has just written, and of golden ones.
set(file ${WORK_DIR}/dumped.vek)
execute_process(COMMAND ${EMULATOR} ${C_CLIENT} ${file} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "c_client: ${status}")
endif()
execute_process(COMMAND ${PYTHON} ${READER} ${file} OUTPUT_VARIABLE output RESULT_VARIABLE status)
set(expected "version: 1
feature size: 8 bytes, 2 floats
tag size: 3 bytes
rows: 2
30 [6 8.10000038] 612d2d
18446744073709551614 [3 4] 622d2d
")
if(NOT status EQUAL 0 OR NOT output STREQUAL expected)
    message(FATAL_ERROR "status ${status}, output:\n${output}expected:\n${expected}")
endif()

# What the library refuses by its form is refused by the reader too, except for ids and the pair of
# no rows and a tag size, which it prints.
file(GLOB golden_files ${GOLDEN_DIR}/*.vek)
foreach(golden ${golden_files})
    execute_process(COMMAND ${PYTHON} ${READER} ${golden} RESULT_VARIABLE status
                    OUTPUT_QUIET ERROR_QUIET)
    set(refused FALSE)
    if(golden MATCHES "/bad-" AND NOT golden MATCHES "-id.vek$|-empty-with-tags.vek$")
        set(refused TRUE)
    endif()
    if((refused AND status EQUAL 0) OR (NOT refused AND NOT status EQUAL 0))
        message(FATAL_ERROR "${golden}: status ${status}")
    endif()
endforeach()
