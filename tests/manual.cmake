# Fails when docs/builtins.md is not what the command writes.
# usage: cmake -DCOMMAND=... -DFILE=... -DWORK=... -P manual.cmake
execute_process(COMMAND ${COMMAND} functions --markdown
    OUTPUT_FILE ${WORK}/builtins.md COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/builtins.md ${FILE}
    RESULT_VARIABLE difference ERROR_QUIET)
if(difference)
    message(FATAL_ERROR "${FILE} is stale; 'make docs' writes it anew")
endif()
