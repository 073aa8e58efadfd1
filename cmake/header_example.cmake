# header_example(HEADER RESULT): the C program that the public header shows, from its #include to
# the end of its only function, without the comment's frame.
function(header_example header result)
    file(READ ${header} text)
    string(FIND "${text}" " *     #include <stdio.h>" begin)
    string(SUBSTRING "${text}" ${begin} -1 example)
    string(FIND "${example}" "\n *     }\n" length)  # the first end of a function
    string(SUBSTRING "${example}" 0 ${length} example)
    string(REGEX REPLACE "\n \\*(     )?" "\n" example "\n${example}\n *     }\n")
    set(${result} "${example}" PARENT_SCOPE)
endfunction()
