# Fails when FILE is not what the command writes by `PAGE OPTION`.
# usage: cmake -DCOMMAND=... -DPAGE=... -DOPTION=... -DFILE=... -DWORK=... -P manual.cmake
execute_process(COMMAND ${COMMAND} ${PAGE} ${OPTION}
    OUTPUT_FILE ${WORK}/${PAGE}${OPTION}.md COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/${PAGE}${OPTION}.md ${FILE}
    RESULT_VARIABLE difference ERROR_QUIET)
if(difference)
    message(FATAL_ERROR "${FILE} is stale; 'make docs' writes it anew")
endif()
