# Library, headers, command, CMake package, pkg-config file and documents.
include(CMakePackageConfigHelpers)
set(kestrel_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/kestrel)
set(kestrel_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Kestrel)

install(TARGETS kestrel EXPORT KestrelTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT headers
    FILE_SET HEADERS DESTINATION ${kestrel_include_dir} COMPONENT headers
    FILE_SET c DESTINATION ${kestrel_include_dir} COMPONENT headers)
install(EXPORT KestrelTargets NAMESPACE Kestrel:: DESTINATION ${kestrel_package_dir}
    COMPONENT headers)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KestrelConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/KestrelConfig.cmake
    ${PROJECT_BINARY_DIR}/KestrelConfigVersion.cmake DESTINATION ${kestrel_package_dir}
    COMPONENT headers)

# The .pc file finds the prefix from its own place, so that an installed tree can be moved.
set(kestrel_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH kestrel_pc_prefix /${kestrel_pc_dir} /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/kestrel.pc.in ${PROJECT_BINARY_DIR}/kestrel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kestrel.pc DESTINATION ${kestrel_pc_dir} COMPONENT headers)

if(TARGET kestrel_cli)
    file(RELATIVE_PATH kestrel_lib_from_bin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(kestrel_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${kestrel_lib_from_bin}")
    install(TARGETS kestrel_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command)
    foreach(part kestrel_edit kestrel_nats)
        if(TARGET ${part})
            install(TARGETS ${part} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT command)
        endif()
    endforeach()
endif()

# The texts refer to each other as they do in the source.
install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT command)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT command
    FILES_MATCHING PATTERN "*.md")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} USE_SOURCE_PERMISSIONS
    COMPONENT command)

# The manual pages and completions are what the command tells about itself, so it has to run here.
if(TARGET kestrel_cli AND NOT CMAKE_CROSSCOMPILING)
    install(CODE "
        set(prefix \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
        function(kestrel_page path)
            get_filename_component(folder \"\${prefix}/\${path}\" DIRECTORY)
            file(MAKE_DIRECTORY \"\${folder}\")
            execute_process(COMMAND \"$<TARGET_FILE:kestrel_cli>\" \${ARGN}
                OUTPUT_FILE \"\${prefix}/\${path}\" COMMAND_ERROR_IS_FATAL ANY)
        endfunction()
        kestrel_page(${CMAKE_INSTALL_DATADIR}/bash-completion/completions/kestrel completion bash)
        kestrel_page(${CMAKE_INSTALL_DATADIR}/zsh/site-functions/_kestrel completion zsh)
        kestrel_page(${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d/kestrel.fish completion fish)
        kestrel_page(${CMAKE_INSTALL_MANDIR}/man1/kestrel.1 man)
        execute_process(COMMAND \"$<TARGET_FILE:kestrel_cli>\" man --list
            OUTPUT_VARIABLE commands COMMAND_ERROR_IS_FATAL ANY OUTPUT_STRIP_TRAILING_WHITESPACE)
        string(REPLACE \"\\n\" \";\" commands \"\${commands}\")
        foreach(command \${commands})
            kestrel_page(${CMAKE_INSTALL_MANDIR}/man1/kestrel-\${command}.1 man \${command})
        endforeach()" COMPONENT command)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/KestrelPackages.cmake)
