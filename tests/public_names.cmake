# Takes the address of everything that the headers installed below PREFIX declare, and links that
# against the library there. CLANG reads the declarations, NAMES makes a program of them, COMPILER
# builds it with FLAGS; with KEEP it also compiles functions that the headers define and nobody
# calls. WORK is a folder to write to.
cmake_minimum_required(VERSION 3.25)

set(include ${PREFIX}/${INCLUDEDIR})
file(MAKE_DIRECTORY ${WORK})
file(GLOB_RECURSE headers RELATIVE ${include} ${include}/*.h)
list(TRANSFORM headers PREPEND "#include \"")
list(TRANSFORM headers APPEND "\"\n")
file(WRITE ${WORK}/headers.cpp ${headers})

# A name of a namespace, or the beginning of a global name.
foreach(name SCR FSM FND)
    set(file ${WORK}/${name}.json)
    execute_process(COMMAND ${CLANG} -std=c++20 -I${include} -fsyntax-only -Xclang -ast-dump=json
        -Xclang -ast-dump-filter=${name} ${WORK}/headers.cpp
        OUTPUT_FILE ${file} COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND files ${file})
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -E cat ${files} COMMAND ${NAMES}
    OUTPUT_FILE ${WORK}/names.cpp COMMAND_ERROR_IS_FATAL ANY)

separate_arguments(FLAGS)
execute_process(COMMAND ${COMPILER} -std=c++20 ${FLAGS} ${KEEP} -I${include} -o ${WORK}/names
    ${WORK}/headers.cpp ${WORK}/names.cpp -L${PREFIX}/${LIBDIR} -lkestrel
    -Wl,-rpath,${PREFIX}/${LIBDIR} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${WORK}/names COMMAND_ERROR_IS_FATAL ANY)
