# The Python reader and the page that it reads, against the golden graph files, which the library
# writes and judges as they say: see tests/serialization/golden_test.cpp.
function(read_graph result)
    execute_process(COMMAND ${PYTHON} ${READER} ${ARGN} WORKING_DIRECTORY ${GOLDEN_DIR}
                    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE error)
    set(${result} "${status}|${output}${error}" PARENT_SCOPE)
endfunction()
function(expect_equal what got expected)
    if(NOT got STREQUAL expected)
        message(SEND_ERROR "${what}:\n${got}\nexpected:\n${expected}")
    endif()
endfunction()

# The hexdumps on the page are those of the files.
file(STRINGS ${PAGE} lines REGEX "^[0-9a-f][0-9a-f]  [0-9a-f][0-9a-f] ")
foreach(line ${lines})
    string(SUBSTRING "${line}          " 4 49 bytes)
    string(REPLACE " " "" bytes "${bytes}")
    string(APPEND dumps "${bytes}")
endforeach()
file(READ ${GOLDEN_DIR}/good-empty.graph empty HEX)
file(READ ${GOLDEN_DIR}/good-add.graph add HEX)
expect_equal("bytes in ${PAGE}" "${dumps}" "${empty}${add}")

file(GLOB good_files RELATIVE ${GOLDEN_DIR} ${GOLDEN_DIR}/good-*.graph)
foreach(name ${good_files})
    read_graph(result --json ${name})
    string(REGEX MATCH "^0\\|(.*)$" matched "${result}")
    string(JSON ignored ERROR_VARIABLE error GET "${CMAKE_MATCH_1}" operators)
    expect_equal("${name} as JSON" "${error}" "NOTFOUND")
endforeach()
read_graph(result good-every-operator.graph)
file(READ ${GOLDEN_DIR}/good-every-operator.txt expected)
expect_equal("good-every-operator.graph" "${result}" "0|${expected}")

file(STRINGS ${GOLDEN_DIR}/faults.txt faults)
foreach(line ${faults})
    string(REGEX MATCH "^([^ ]+) (.*)$" matched "${line}")
    set(name ${CMAKE_MATCH_1})
    set(expected "1|${name}: ${CMAKE_MATCH_2}\n")
    # The reader has only the operators of the page.
    string(REGEX REPLACE "the operator.* known.*" "the operator is not in graph-file.md\n" expected
                         "${expected}")
    read_graph(result ${name})
    expect_equal("${name}" "${result}" "${expected}")
endforeach()
