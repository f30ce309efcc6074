# The headers are listed in file sets, which older versions do not know.
if(CMAKE_VERSION VERSION_LESS 3.23)
    set(${CMAKE_FIND_PACKAGE_NAME}_FOUND FALSE)
    set(${CMAKE_FIND_PACKAGE_NAME}_NOT_FOUND_MESSAGE
        "Kestrel needs CMake 3.23 or later, this is ${CMAKE_VERSION}; pkg-config needs none.")
    return()
endif()
include(${CMAKE_CURRENT_LIST_DIR}/KestrelTargets.cmake)
