# Fails when libkestrel.so shows a symbol that does not belong to the interface, or shows none at
# all.
# usage: cmake -DNM=... -DLIBRARY=... -P exported_symbols.cmake
execute_process(COMMAND ${NM} --dynamic --defined-only --demangle ${LIBRARY}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE ";" "," output "${output}")
string(REGEX REPLACE "\n$" "" output "${output}")
string(REPLACE "\n" ";" lines "${output}")

set(of "((vtable|VTT|typeinfo|typeinfo name) for |(non-virtual|virtual) thunk to )?")
set(foreign "")
set(interpreter FALSE)
foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[0-9a-f]* *[A-Za-z] " "" symbol "${line}")
    if(symbol MATCHES "^SCR::Interpreter::compile")
        set(interpreter TRUE)
    endif()
    if(NOT symbol MATCHES "^${of}(SCR|FSM|FND)::" AND NOT symbol MATCHES "^FND_[A-Z0-9_]+(\\[abi|$)"
            AND NOT symbol MATCHES "^SCR_YaccError\\(")
        list(APPEND foreign "${symbol}")
    endif()
endforeach()
if(foreign)
    list(JOIN foreign "\n  " foreign)
    message(FATAL_ERROR "not of the interface:\n  ${foreign}")
endif()
if(NOT interpreter)
    message(FATAL_ERROR "the interpreter is not exported")
endif()
list(LENGTH lines count)
message(STATUS "${count} symbols, all of the interface")
