# Headers, library, CMake package and pkg-config files. The tool installs itself.
include(CMakePackageConfigHelpers)
set(engine_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/engine_filesystem)

install(TARGETS engine_filesystem EXPORT engine_filesystem_targets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT engine_filesystem_targets FILE engine_filesystemTargets.cmake NAMESPACE engine::
    DESTINATION ${engine_package_dir})

configure_package_config_file(cmake/engine_filesystemConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/engine_filesystemConfig.cmake INSTALL_DESTINATION ${engine_package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/engine_filesystemConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/engine_filesystemConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/engine_filesystemConfigVersion.cmake DESTINATION ${engine_package_dir})

file(RELATIVE_PATH engine_pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(name engine_filesystem engine_filesystem_c)
    configure_file(cmake/${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
