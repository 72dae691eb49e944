# The tool's pages, made from its own help where the tool runs without an emulator, and packages of what is built:
#
#   cmake --build --preset package              .deb and .tar.gz, and a .zip for Windows where MinGW-w64 is installed
#   cmake --build --preset package-windows      the .zip alone
find_package(Python3 COMPONENTS Interpreter)

set(engine_pages ${PROJECT_BINARY_DIR}/pages)
if(Python3_Interpreter_FOUND AND NOT CMAKE_CROSSCOMPILING)
    set(pages ${engine_pages}/enginefs.1 ${engine_pages}/enginefs ${engine_pages}/_enginefs)
    add_custom_command(OUTPUT ${pages}
        COMMAND ${Python3_EXECUTABLE} -B ${PROJECT_SOURCE_DIR}/packaging/pages.py ${engine_pages} ${PROJECT_VERSION}
            $<TARGET_FILE:enginefs>
        DEPENDS enginefs ${PROJECT_SOURCE_DIR}/packaging/pages.py VERBATIM)
    add_custom_target(pages ALL DEPENDS ${pages})
    # Optional: whoever built only the library and the tool can install these.
    install(FILES ${engine_pages}/enginefs.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool OPTIONAL)
    install(FILES ${engine_pages}/enginefs DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool OPTIONAL)
    install(FILES ${engine_pages}/_enginefs DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT tool OPTIONAL)
endif()

if(CMAKE_CROSSCOMPILING AND NOT WIN32)
    return()
endif()
add_custom_target(packages
    COMMAND ${PROJECT_SOURCE_DIR}/packaging/make-packages ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/build/packages
    VERBATIM USES_TERMINAL)
add_dependencies(packages engine_filesystem enginefs)
if(TARGET engine_filesystem_c_import)
    add_dependencies(packages engine_filesystem_c_import)
endif()
if(TARGET pages)
    add_dependencies(packages pages)
endif()

find_program(ENGINE_MINGW x86_64-w64-mingw32-g++-posix)
if(ENGINE_MINGW AND NOT CMAKE_CROSSCOMPILING)
    add_custom_target(windows_packages
        COMMAND ${CMAKE_COMMAND} --preset windows-release
        COMMAND ${CMAKE_COMMAND} --build --preset package-windows
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM USES_TERMINAL)
    add_custom_target(all_packages DEPENDS packages windows_packages)
else()
    add_custom_target(all_packages DEPENDS packages)
endif()
