# The shared object exports exactly the functions that the public header declares, 31 of them.
# Arguments: NM, LIBRARY, HEADER.
cmake_minimum_required(VERSION 3.22)
execute_process(COMMAND ${NM} -D --defined-only -P ${LIBRARY}
                OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
set(exported)
foreach(line IN LISTS lines)
    string(REGEX REPLACE "[ @].*" "" name "${line}")
    list(APPEND exported ${name})
endforeach()

file(READ ${HEADER} text)
string(REGEX MATCHALL "\nVEK_API [^(]*" declarations "${text}")
set(declared)
foreach(declaration IN LISTS declarations)
    string(REGEX MATCH "VEK_[A-Za-z0-9_]+$" name "${declaration}")
    list(APPEND declared ${name})
endforeach()

list(SORT exported)
list(SORT declared)
list(LENGTH declared count)
if(NOT count EQUAL 31 OR NOT exported STREQUAL declared)
    message(FATAL_ERROR "declared (${count}): ${declared}\nexported: ${exported}")
endif()
