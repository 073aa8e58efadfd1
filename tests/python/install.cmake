# Installs the package into a new venv, without the network, and runs a test with what is there.
# -DPYTHON, PACKAGE, WORK_DIR, TEST. Built from a copy, since setuptools writes beside its sources.
function(run)
    execute_process(COMMAND ${ARGV} WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE status
                    OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${ARGV}: ${status}\n${output}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(COPY ${PACKAGE}/pyproject.toml ${PACKAGE}/vekfind DESTINATION ${WORK_DIR}/source)
run(${PYTHON} -m venv --system-site-packages venv)
run(venv/bin/pip install --no-index --no-build-isolation ./source)
file(REMOVE_RECURSE ${WORK_DIR}/source)
run(venv/bin/python ${TEST})
