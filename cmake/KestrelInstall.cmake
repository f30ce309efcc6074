# Library, headers, command, CMake package, pkg-config file and documents.
include(CMakePackageConfigHelpers)
set(kestrel_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/kestrel)
set(kestrel_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Kestrel)

install(TARGETS kestrel EXPORT KestrelTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${kestrel_include_dir} COMPONENT headers
    FILE_SET c DESTINATION ${kestrel_include_dir} COMPONENT headers)
install(EXPORT KestrelTargets NAMESPACE Kestrel:: DESTINATION ${kestrel_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KestrelConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/KestrelConfig.cmake
    ${PROJECT_BINARY_DIR}/KestrelConfigVersion.cmake DESTINATION ${kestrel_package_dir})

# The .pc file finds the prefix from its own place, so that an installed tree can be moved.
set(kestrel_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH kestrel_pc_prefix /${kestrel_pc_dir} /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/kestrel.pc.in ${PROJECT_BINARY_DIR}/kestrel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kestrel.pc DESTINATION ${kestrel_pc_dir})

if(TARGET kestrel_cli)
    file(RELATIVE_PATH kestrel_lib_from_bin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(kestrel_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${kestrel_lib_from_bin}")
    install(TARGETS kestrel_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} USE_SOURCE_PERMISSIONS)
