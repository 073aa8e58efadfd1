# No fused multiply-add stands in the code: it would give a score another last bit than separately
# rounded operations. Arguments: OBJDUMP, LIBRARY.
execute_process(COMMAND ${OBJDUMP} --disassemble --no-show-raw-insn ${LIBRARY}
                RESULT_VARIABLE status OUTPUT_VARIABLE code)
if(NOT status EQUAL 0 OR NOT code MATCHES "vmla\\.f32")
    message(FATAL_ERROR "${LIBRARY} shows no NEON code; status ${status}")
endif()
string(REGEX MATCH "[^\n]*vf(n?m)[as]\\.[^\n]*" fused "${code}")
if(fused)
    message(FATAL_ERROR "fused: ${fused}")
endif()
