# The shared object exports exactly the functions that the public header declares, 31 of them, and it
# cannot print: it refers to none of the functions and streams that would. Writing to a file of its own
# (fwrite) is fine, since it has no way to name the standard streams. Arguments: NM, LIBRARY, HEADER.
cmake_minimum_required(VERSION 3.22)
set(PRINTING
    printf __printf_chk vprintf __vprintf_chk dprintf __dprintf_chk vdprintf puts putchar putchar_unlocked
    perror psignal syslog vsyslog __syslog_chk write writev stdout stderr error warn err
    __assert_fail __assert_perror_fail
    _ZSt4cout _ZSt4cerr _ZSt4clog _ZSt5wcout _ZSt5wcerr _ZNSt8ios_base4InitC1Ev)

function(symbols result kind)
    execute_process(COMMAND ${NM} -D ${kind} -P ${LIBRARY}
                    OUTPUT_VARIABLE lines COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX REPLACE "[ @][^\n]*" "" names "${lines}")
    string(REGEX MATCHALL "[^\n]+" names "${names}")
    list(SORT names)
    set(${result} ${names} PARENT_SCOPE)
endfunction()

file(READ ${HEADER} text)
string(REGEX MATCHALL "\nVEK_API [^(]*" declared "${text}")
list(TRANSFORM declared REPLACE ".*[ *](VEK_[A-Za-z0-9_]+)$" "\\1")
list(SORT declared)
list(LENGTH declared count)
symbols(exported --defined-only)
if(NOT count EQUAL 31 OR NOT exported STREQUAL declared)
    message(FATAL_ERROR "declared (${count}): ${declared}\nexported: ${exported}")
endif()

symbols(undefined --undefined-only)
if(NOT undefined)
    message(FATAL_ERROR "no undefined symbols in ${LIBRARY}: nothing was checked")
endif()
foreach(name IN LISTS undefined)
    if(name IN_LIST PRINTING)
        message(SEND_ERROR "the library refers to ${name}")
    endif()
endforeach()
