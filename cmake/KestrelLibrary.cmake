# The shared library that hosts link: the objects of the three layers, their public headers, and a
# version script that keeps everything else in.
add_library(kestrel SHARED)
add_library(Kestrel::kestrel ALIAS kestrel)
set(kestrel_layers kestrel_fnd kestrel_fsm kestrel_scr kestrel_capi)
target_link_libraries(kestrel PRIVATE ${kestrel_layers} ${CMAKE_DL_LIBS})
target_compile_features(kestrel PUBLIC cxx_std_20)
kestrel_warnings(kestrel)
kestrel_hardening(kestrel)

# A layer lists its public headers next to its sources; users see them as those of one library.
foreach(layer IN LISTS kestrel_layers)
    get_target_property(headers ${layer} HEADER_SET)
    if(headers)
        target_sources(kestrel PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}
            FILES ${headers})
    endif()
endforeach()

# Hosts in C include it by its name alone.
target_sources(kestrel PUBLIC FILE_SET c TYPE HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/capi
    FILES ${PROJECT_SOURCE_DIR}/capi/kestrel.h)

set(kestrel_exports ${CMAKE_CURRENT_LIST_DIR}/kestrel.map)
# Calls within the library go straight to their targets; nobody may redirect them.
target_link_options(kestrel PRIVATE LINKER:--version-script=${kestrel_exports}
    LINKER:-Bsymbolic-functions)
if(NOT KESTREL_SANITIZE)
    target_link_options(kestrel PRIVATE LINKER:--no-undefined)
endif()
set_target_properties(kestrel PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINK_DEPENDS ${kestrel_exports}
    VERIFY_INTERFACE_HEADER_SETS ON
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
