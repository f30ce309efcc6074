# Builds SOURCE by COMPILER with FLAG against the package installed below PREFIX, and runs it. WORK
# is a folder to write to.
cmake_minimum_required(VERSION 3.25)

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(program ${WORK}/plain_host)
file(MAKE_DIRECTORY ${WORK})
run(${COMPILER} -std=c++20 -Wall -Wextra -Wpedantic -Werror ${FLAG} -I${PREFIX}/${INCLUDEDIR}
    -o ${program} ${SOURCE} -L${PREFIX}/${LIBDIR} -lkestrel -Wl,-rpath,${PREFIX}/${LIBDIR})
run(${program})
