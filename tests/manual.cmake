# Fails when FILE is not what the command writes by `functions OPTION`.
# usage: cmake -DCOMMAND=... -DOPTION=... -DFILE=... -DWORK=... -P manual.cmake
execute_process(COMMAND ${COMMAND} functions ${OPTION}
    OUTPUT_FILE ${WORK}/manual${OPTION}.md COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/manual${OPTION}.md ${FILE}
    RESULT_VARIABLE difference ERROR_QUIET)
if(difference)
    message(FATAL_ERROR "${FILE} is stale; 'make docs' writes it anew")
endif()
