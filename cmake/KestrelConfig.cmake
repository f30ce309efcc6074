include(${CMAKE_CURRENT_LIST_DIR}/KestrelTargets.cmake)
