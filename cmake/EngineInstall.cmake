# Headers, libraries, CMake package and pkg-config files, in the components "library", "http" and "development". The tool
# installs itself, as the component "tool".
include(CMakePackageConfigHelpers)

write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/engine_filesystemConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)

# engine_install(LIBDIR PREFIX [EXCLUDE_FROM_ALL]): everything with its libraries in LIBDIR, as components PREFIXlibrary,
# PREFIXhttp (the library for packs on web servers) and PREFIXdevelopment.
function(engine_install libdir prefix)
    set(library COMPONENT ${prefix}library ${ARGN})
    set(development COMPONENT ${prefix}development ${ARGN})
    set(package_dir ${libdir}/cmake/engine_filesystem)
    set(generated ${CMAKE_CURRENT_BINARY_DIR}/${prefix}install)

    install(TARGETS engine_filesystem EXPORT ${prefix}engine_filesystem_targets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} ${library}
        LIBRARY DESTINATION ${libdir} ${library} NAMELINK_COMPONENT ${prefix}development
        ARCHIVE DESTINATION ${libdir} ${development})
    install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${development} FILES_MATCHING PATTERN "*.h")
    install(EXPORT ${prefix}engine_filesystem_targets FILE engine_filesystemTargets.cmake NAMESPACE engine::
        DESTINATION ${package_dir} ${development})

    set(modules engine_filesystem engine_filesystem_c)
    if(TARGET engine_filesystem_http)
        list(APPEND modules engine_filesystem_http)
        install(TARGETS engine_filesystem_http EXPORT ${prefix}engine_filesystem_http_targets
            LIBRARY DESTINATION ${libdir} COMPONENT ${prefix}http ${ARGN} NAMELINK_COMPONENT ${prefix}development
            ARCHIVE DESTINATION ${libdir} ${development})
        install(DIRECTORY modules/http/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${development})
        install(EXPORT ${prefix}engine_filesystem_http_targets FILE engine_filesystem_httpTargets.cmake NAMESPACE engine::
            DESTINATION ${package_dir} ${development})
    endif()

    # The library for hosts in C; on Windows with the import library that MSVC reads, if one could be made.
    set(engine_c_location ${libdir}/libengine_filesystem.so)
    set(engine_c_implib)
    if(WIN32)
        set(engine_c_location ${CMAKE_INSTALL_BINDIR}/engine_filesystem.dll)
        set(engine_c_implib ${libdir}/libengine_filesystem.dll.a)
    endif()
    if(engine_c_import_library)
        set(engine_c_implib ${libdir}/engine_filesystem_c.lib)
        install(FILES ${engine_c_import_library} DESTINATION ${libdir} ${development})
    endif()
    configure_package_config_file(cmake/engine_filesystemConfig.cmake.in ${generated}/engine_filesystemConfig.cmake
        INSTALL_DESTINATION ${package_dir})
    install(FILES ${generated}/engine_filesystemConfig.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/engine_filesystemConfigVersion.cmake DESTINATION ${package_dir} ${development})

    set(engine_libdir ${libdir})
    file(RELATIVE_PATH engine_pc_to_prefix /${libdir}/pkgconfig /)
    foreach(name IN LISTS modules)
        configure_file(cmake/${name}.pc.in ${generated}/${name}.pc @ONLY)
        install(FILES ${generated}/${name}.pc DESTINATION ${libdir}/pkgconfig ${development})
    endforeach()
endfunction()

engine_install(${CMAKE_INSTALL_LIBDIR} "")
install(FILES LICENSE NOTICES DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library)
if(CMAKE_LIBRARY_ARCHITECTURE)
    engine_install(lib/${CMAKE_LIBRARY_ARCHITECTURE} debian- EXCLUDE_FROM_ALL)  # where Debian's packages have them
endif()
