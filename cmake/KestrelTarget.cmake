# Warnings that every target of the project is built with, and the sanitizers asked for; never
# passed on to users.
# -Wrestrict of GCC 12 mistakes `"text" + string` for overlapping copies.
function(kestrel_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wundef
        $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
        $<$<BOOL:${KESTREL_WERROR}>:-Werror>)
    if(KESTREL_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${KESTREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${KESTREL_SANITIZE})
    endif()
endfunction()

# An object library for one layer of the system, built on the layers named after it. An object
# library passes on only its own objects, so whoever links a layer names the layers below as well.
function(kestrel_layer target)
    add_library(${target} OBJECT)
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
    target_compile_definitions(${target} PRIVATE KESTREL_SPECIALISE=$<BOOL:${KESTREL_SPECIALISE}>
        KESTREL_NODE_POOL=$<BOOL:${KESTREL_NODE_POOL}>)
    target_link_libraries(${target} PUBLIC Threads::Threads)
    kestrel_warnings(${target})
endfunction()
