# Wrong uses of a host's extension must fail to compile, each with the text that says why. COMPILER,
# INCLUDE and WORK are the compiler, the folder of the headers and one to write to.
cmake_minimum_required(VERSION 3.25)

set(statements "")
set(messages "")
function(misuse statement message)
    string(REPLACE ";" "@" statement "${statement}")
    set(statements "${statements};${statement}" PARENT_SCOPE)
    set(messages "${messages};${message}" PARENT_SCOPE)
endfunction()

misuse([[host.function("f", [](auto a) { return a; });]] "with one operator() that is no template")
misuse([[host.function("f", 3);]] "a host function must be a function pointer")
misuse([[struct M { long m(long a) { return a; } }; host.function("f", &M::m);]]
    "a member function is called from a lambda")
misuse([[struct M { long m = 0; }; host.function("f", &M::m);]]
    "a member function is called from a lambda")
misuse([[host.function("f", [](double) {});]] "a parameter of a host function must be an integer")
misuse([[host.function("f", [](int&) {});]] "out-parameter a reference to long, bool or")
misuse([[host.function("f", [](SCR::Object<long>) {});]] "objects are of classes of the host")
misuse([[host.function("f", [](const char*) {});]] "a parameter of a host function must be")
misuse([[host.function("f", [](std::optional<long>, long) {});]] "must be the last ones")
misuse([[host.function("f", [](SCR::Rest<long>, long) {});]] "at most one SCR::Rest")
misuse([[host.function("f", []() { return 1.5; });]] "the result of a host function must be void")
misuse([[host.field("f", [](long) { return 1L; }, [](bool, long) {});]]
    "must take the reader's parameters and then a value")
misuse([[host.field("f", [](long) { return 1L; }, [](long, bool) {});]]
    "must take the reader's parameters and then a value")
misuse([[host.variable<FND::Decimal>("v") = 1.5;]] "takes an FND::Decimal or an integer")
misuse([[host.variable<bool>("v") += true;]] "this operator works on variables of type long and")
misuse([[(void)(host.variable<FND::String>("v") == 5);]] "a variable of type FND::String takes texts")
misuse([[SCR::ScriptVariable<float> v;]] "the variables of scripts are read and written as integers")
misuse([[SCR::ScriptFunction<long(char*)> f;]] "types that variables of scripts may be read as")
misuse([[host.variable<int>("v");]] "a host variable is of type long, bool")
misuse([[host.constant("c", 1.5);]] "a host constant is an integer, a bool, a text")

# All in one program: the compiler names the line of each.
set(program "#include \"scr/HostExtension.h\"\n#include \"scr/ScriptHandle.h\"\n")
list(REMOVE_AT statements 0)
foreach(statement IN LISTS statements)
    string(MD5 name "${statement}")
    string(APPEND program "void f${name}(SCR::HostExtension& host) { ${statement} }\n")
endforeach()
string(REPLACE "@" ";" program "${program}")
file(WRITE ${WORK}/misuse.cpp "${program}")
execute_process(COMMAND ${COMPILER} -std=c++20 -fsyntax-only -fmax-errors=0 -I${INCLUDE}
    ${WORK}/misuse.cpp RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE errors)
list(REMOVE_AT messages 0)
set(line 3)
foreach(message IN LISTS messages)
    string(FIND "${errors}" "misuse.cpp:${line}:" place)
    string(FIND "${errors}" "${message}" found)
    if(place EQUAL -1 OR found EQUAL -1)
        message(SEND_ERROR "line ${line} of ${WORK}/misuse.cpp: not \"${message}\"\n${errors}")
    endif()
    math(EXPR line "${line} + 1")
endforeach()
