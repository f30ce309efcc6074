# Wrong uses of a host's extension must fail to compile, with the text that says why. COMPILER,
# INCLUDE and WORK are the compiler, the folder of the headers and one to write to.
cmake_minimum_required(VERSION 3.25)

function(misuse statement message)
    file(WRITE ${WORK}/misuse.cpp
        "#include \"scr/HostExtension.h\"\nvoid use(SCR::HostExtension& host) { ${statement} }\n")
    execute_process(COMMAND ${COMPILER} -std=c++20 -fsyntax-only -I${INCLUDE} ${WORK}/misuse.cpp
        RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE errors)
    string(FIND "${errors}" "${message}" found)
    if(message STREQUAL "")
        if(NOT status EQUAL 0)
            message(SEND_ERROR "does not compile: ${statement}\n${errors}")
        endif()
    elseif(status EQUAL 0 OR found EQUAL -1)
        message(SEND_ERROR "not \"${message}\": ${statement}\n${errors}")
    endif()
endfunction()

misuse([[host.function("f", [](long a) { return a; });]] "")
misuse([[host.function("f", [](auto a) { return a; });]] "with one operator() that is no template")
misuse([[host.function("f", 3);]] "a host function must be a function pointer")
misuse([[struct M { long m(long a) { return a; } }; host.function("f", &M::m);]]
    "a member function is called from a lambda")
misuse([[struct M { long m = 0; }; host.function("f", &M::m);]]
    "a member function is called from a lambda")
misuse([[host.function("f", [](double) {});]] "a parameter of a host function must be an integer")
misuse([[host.function("f", [](int&) {});]] "out-parameter a reference to long, bool or")
misuse([[host.function("f", [](const char*) {});]] "a parameter of a host function must be")
misuse([[host.function("f", [](std::optional<long>, long) {});]] "must be the last ones")
misuse([[host.function("f", []() { return 1.5; });]] "the result of a host function must be void")
misuse([[host.field("f", [](long) { return 1L; }, [](bool, long) {});]]
    "must take the reader's parameters and then a value")
misuse([[host.field("f", [](long) { return 1L; }, [](long, bool) {});]]
    "must take the reader's parameters and then a value")
misuse([[host.variable<int>("v");]] "a host variable is of type long, bool")
misuse([[host.constant("c", 1.5);]] "a host constant is an integer, a bool, a text")
