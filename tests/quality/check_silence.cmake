# The shared object cannot print: it refers to none of the functions and streams that would.
# Writing to a file of its own (fwrite) is fine, since it has no way to name the standard streams.
# Arguments: NM, LIBRARY.
cmake_minimum_required(VERSION 3.22)
set(PRINTING
    printf __printf_chk vprintf __vprintf_chk dprintf __dprintf_chk vdprintf puts putchar putchar_unlocked
    perror psignal syslog vsyslog __syslog_chk write writev stdout stderr error warn err
    __assert_fail __assert_perror_fail
    _ZSt4cout _ZSt4cerr _ZSt4clog _ZSt5wcout _ZSt5wcerr _ZNSt8ios_base4InitC1Ev)
execute_process(COMMAND ${NM} -D --undefined-only -P ${LIBRARY}
                OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${symbols}")
if(NOT lines)
    message(FATAL_ERROR "no undefined symbols in ${LIBRARY}: nothing was checked")
endif()
foreach(line IN LISTS lines)
    string(REGEX REPLACE "[ @].*" "" name "${line}")
    if(name IN_LIST PRINTING)
        message(SEND_ERROR "the library refers to ${name}")
    endif()
endforeach()
