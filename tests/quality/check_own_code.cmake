# Files of an instruction set share no code with others: the linker might keep their copy of an inline
# function for everybody. Arguments: NM, and OBJECTS.
if(NOT OBJECTS)
    message(FATAL_ERROR "no objects")
endif()
foreach(object IN LISTS OBJECTS)
    execute_process(COMMAND ${NM} --defined-only ${object} RESULT_VARIABLE status
                    OUTPUT_VARIABLE symbols)
    if(NOT status EQUAL 0 OR NOT symbols MATCHES " [Tt] ")
        message(FATAL_ERROR "${object} shows no code; status ${status}")
    endif()
    string(REGEX MATCH "[^\n]* [WVu] [^\n]*" shared "${symbols}")
    if(shared)
        message(FATAL_ERROR "${object} shares ${shared}")
    endif()
endforeach()
