# Warnings for every target of the project, and the sanitizers asked for; never passed on to users.
# GCC 12 mistakes `"text" + string` for overlapping copies and for copies out of bounds.
function(kestrel_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wundef
        "$<$<CXX_COMPILER_ID:GNU>:-Wno-restrict;-Wno-stringop-overflow;-Wno-array-bounds>"
        $<$<BOOL:${KESTREL_WERROR}>:-Werror>)
    if(KESTREL_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${KESTREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${KESTREL_SANITIZE})
    endif()
endfunction()

# Those and the warnings for the product, where a conversion that loses something is worth a thought.
function(kestrel_product_warnings target)
    kestrel_warnings(${target})
    target_compile_options(${target} PRIVATE -Wconversion)
endfunction()

# Makes faults of an optimised build harder to exploit: full RELRO, guarded stacks, checked calls of
# the C library, and marks for the processor's control-flow enforcement; never passed on to users.
function(kestrel_hardening target)
    if(KESTREL_SANITIZE OR EMSCRIPTEN)
        return()
    endif()
    set(is_optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
    target_compile_options(${target} PRIVATE
        "$<${is_optimised}:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2;-fcf-protection=full>")
    target_link_options(${target} PRIVATE $<${is_optimised}:LINKER:-z,relro,-z,now>)
endfunction()

# What runs once for a command or a question, and not for each record, is optimised less: that takes
# half the time. To be linked after what runs often, which may hold the same inline functions.
function(kestrel_rarely_runs target)
    if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT EMSCRIPTEN)
        target_compile_options(${target} PRIVATE -Og)
    endif()
endfunction()

# Compiles several sources of a target as one, where that is asked for: `count`, or 16. GCC takes
# what such a source includes for headers, in which nothing may depend on an anonymous namespace.
function(kestrel_join_sources target)
    if(KESTREL_PRECOMPILE)
        set(count ${ARGN} 16)
        list(GET count 0 count)
        set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${count})
        target_compile_options(${target} PRIVATE
            $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    endif()
endfunction()

# Lets the sources of a target use the standard headers that the first target compiled.
function(kestrel_precompile target)
    if(EMSCRIPTEN)
        target_precompile_headers(${target} PRIVATE ${PROJECT_SOURCE_DIR}/playground/Browser.h)
        return()
    endif()
    if(NOT KESTREL_PRECOMPILE)
        return()
    endif()
    get_property(first GLOBAL PROPERTY kestrel_precompiled)
    if(first)
        target_precompile_headers(${target} REUSE_FROM ${first})
    else()
        # More would take longer to load than they take to compile.
        target_precompile_headers(${target} PRIVATE <algorithm> <array> <cstdint> <functional> <map>
            <memory> <mutex> <optional> <string> <string_view> <unordered_map> <utility> <vector>)
        set_property(GLOBAL PROPERTY kestrel_precompiled ${target})
    endif()
endfunction()

# An object library for one layer of the system, built on the layers named after it. An object
# library passes on only its own objects, so whoever links a layer names the layers below as well.
function(kestrel_layer target)
    add_library(${target} OBJECT)
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
    target_compile_definitions(${target} PRIVATE KESTREL_NODE_POOL=$<BOOL:${KESTREL_NODE_POOL}>)
    target_link_libraries(${target} PUBLIC Threads::Threads)
    kestrel_product_warnings(${target})
    kestrel_hardening(${target})
    kestrel_precompile(${target})
    kestrel_join_sources(${target})
endfunction()
