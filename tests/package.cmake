# Tests what users get: headers that stand alone, the library's symbols, the installed package.

# Each public header compiles by itself, as part of the builds of those who change the code.
if(NOT KESTREL_PRECOMPILE)
    add_custom_target(kestrel_headers ALL)
    add_dependencies(kestrel_headers kestrel_verify_interface_header_sets)
endif()

add_test(NAME package.symbols COMMAND ${CMAKE_COMMAND}
    -DNM=${CMAKE_NM} -DLIBRARY=$<TARGET_FILE:kestrel>
    -P ${CMAKE_CURRENT_SOURCE_DIR}/exported_symbols.cmake)

if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT KESTREL_SANITIZE)
    add_test(NAME package.hardening COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/hardening.sh
        ${CMAKE_READELF} ${CMAKE_OBJDUMP} $<TARGET_FILE:kestrel> $<TARGET_FILE:kestrel_cli>)
endif()

if(NOT KESTREL_INSTALL)
    return()
endif()

# A host program is built against a fresh installation, with the flags that the library needs.
set(work ${CMAKE_CURRENT_BINARY_DIR}/install)
set(flags "${CMAKE_CXX_FLAGS}")
if(KESTREL_SANITIZE)
    string(APPEND flags " -fsanitize=${KESTREL_SANITIZE}")
endif()
add_test(NAME package.clear COMMAND ${CMAKE_COMMAND} -E rm -rf ${work})
add_test(NAME package.install COMMAND ${CMAKE_COMMAND}
    --install ${PROJECT_BINARY_DIR} --prefix ${work}/prefix)
add_test(NAME package.cmake COMMAND ${CMAKE_CTEST_COMMAND}
    --build-and-test ${CMAKE_CURRENT_SOURCE_DIR}/install ${work}/cmake
    --build-generator ${CMAKE_GENERATOR}
    --build-options -DCMAKE_PREFIX_PATH=${work}/prefix
        -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER} -DCMAKE_CXX_FLAGS=${flags}
        -DREADME=${PROJECT_SOURCE_DIR}/README.md
    --test-command ${work}/cmake/host)
add_test(NAME package.readme COMMAND ${work}/cmake/readme)
add_test(NAME package.examples COMMAND ${CMAKE_CTEST_COMMAND}
    --build-and-test ${PROJECT_SOURCE_DIR}/examples/host ${work}/examples
    --build-generator ${CMAKE_GENERATOR}
    --build-options -DCMAKE_PREFIX_PATH=${work}/prefix
        -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER} -DCMAKE_CXX_FLAGS=${flags}
    --test-command ${CMAKE_CTEST_COMMAND} --output-on-failure)
add_test(NAME package.extension COMMAND ${CMAKE_CTEST_COMMAND}
    --build-and-test ${PROJECT_SOURCE_DIR}/examples/extension ${work}/extension
    --build-generator ${CMAKE_GENERATOR}
    --build-options -DCMAKE_PREFIX_PATH=${work}/prefix
        -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER} -DCMAKE_CXX_FLAGS=${flags}
    --test-command ${CMAKE_CTEST_COMMAND} --output-on-failure)
add_test(NAME package.pkgconfig COMMAND make
    -C ${CMAKE_CURRENT_SOURCE_DIR}/install BUILD=${work} CXX=${CMAKE_CXX_COMPILER}
    CXXFLAGS=${flags} run)
add_test(NAME package.command COMMAND ${work}/prefix/${CMAKE_INSTALL_BINDIR}/kestrel
    run -e "if (strLength(\"installed\") > 3) { logStdout(\"runs\"); }")
# Skipped where there are no tools for packages.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT KESTREL_SANITIZE)
    add_test(NAME package.debian COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/packages.sh
        ${PROJECT_BINARY_DIR} ${PROJECT_VERSION} ${CMAKE_CXX_COMPILER})
    set_tests_properties(package.debian PROPERTIES SKIP_RETURN_CODE 77)
endif()
# Everything that the headers declare must link. clang, which reads them, may not be the compiler
# that builds.
find_program(KESTREL_clang++ clang++)
find_package(simdjson QUIET)
if(KESTREL_clang++ AND simdjson_FOUND)
    add_executable(public_names public_names.cpp)
    target_link_libraries(public_names PRIVATE simdjson::simdjson)
    kestrel_warnings(public_names)
    set(keep "")
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        set(keep -fkeep-inline-functions)
    endif()
    add_test(NAME package.names COMMAND ${CMAKE_COMMAND}
        -DCLANG=${KESTREL_clang++} -DCOMPILER=${CMAKE_CXX_COMPILER} -DFLAGS=${flags}
        -DKEEP=${keep} -DPREFIX=${work}/prefix
        -DINCLUDEDIR=${kestrel_include_dir} -DLIBDIR=${CMAKE_INSTALL_LIBDIR}
        -DNAMES=$<TARGET_FILE:public_names> -DWORK=${work}/names
        -P ${CMAKE_CURRENT_SOURCE_DIR}/public_names.cmake)
    set_tests_properties(package.names PROPERTIES FIXTURES_REQUIRED package_install)
endif()
# Hosts without exceptions or run-time type information, whatever compiler builds them.
if(NOT KESTREL_SANITIZE)
    foreach(compiler g++ clang++)
        find_program(KESTREL_${compiler} ${compiler})
        foreach(flag -fno-exceptions -fno-rtti)
            if(KESTREL_${compiler})
                set(name package.plain.${compiler}${flag})
                add_test(NAME ${name} COMMAND ${CMAKE_COMMAND}
                    -DCOMPILER=${KESTREL_${compiler}} -DFLAG=${flag} -DPREFIX=${work}/prefix
                    -DINCLUDEDIR=${kestrel_include_dir} -DLIBDIR=${CMAKE_INSTALL_LIBDIR}
                    -DSOURCE=${CMAKE_CURRENT_SOURCE_DIR}/install/plain.cpp -DWORK=${work}/${name}
                    -P ${CMAKE_CURRENT_SOURCE_DIR}/plain_host.cmake)
                set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED package_install)
            endif()
        endforeach()
    endforeach()
endif()
set_tests_properties(package.clear PROPERTIES FIXTURES_SETUP package_clear)
set_tests_properties(package.install PROPERTIES
    FIXTURES_REQUIRED package_clear FIXTURES_SETUP package_install)
set_tests_properties(package.cmake package.examples package.extension package.pkgconfig package.command PROPERTIES
    FIXTURES_REQUIRED package_install)
set_tests_properties(package.cmake PROPERTIES FIXTURES_SETUP package_cmake)
set_tests_properties(package.readme PROPERTIES
    FIXTURES_REQUIRED "package_install;package_cmake"
    PASS_REGULAR_EXPRESSION "^0.12\n0.24\n1.20\n$")
set_tests_properties(package.pkgconfig PROPERTIES
    ENVIRONMENT PKG_CONFIG_PATH=${work}/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set_tests_properties(package.command PROPERTIES PASS_REGULAR_EXPRESSION "^runs")
